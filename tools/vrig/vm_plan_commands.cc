// vrig vm plan: a machine described to the module as a dummy, checked, and
// printed as what would be made or why it cannot be, before anything is
// written. With --create the machine is then made and the dummy linked to
// it. This is how a restore tool checks its target.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <cstdio>
#include <set>
#include <stdexcept>
#include <tuple>

#include "cli.h"
#include "vhdx_access.h"

namespace vrig {
namespace {

using Processor::AutoRef;
using VirtualWareRaw::SafeHardDisk;
using VirtualWareRaw::SafeVM;

constexpr std::uint32_t kSectorSize = 512;

struct PlannedDisk {
  std::string Given;  // as the user wrote it, for messages
  std::uint32_t BusType = 0, Bus = 0, Location = 0;
  std::string File;
  std::uint64_t Size = 0;
};

// "ide:0:1:data.vhdx:40G"; the file name may itself hold ":".
PlannedDisk ParseDisk(const std::string& text) {
  const std::size_t a = text.find(':'), b = text.find(':', a + 1), c = text.find(':', b + 1);
  const std::size_t last = text.rfind(':');
  if (a == std::string::npos || b == std::string::npos || c == std::string::npos || last <= c)
    throw UsageError{"a disk is <ide|scsi>:<bus>:<slot>:<file>:<size>, not " + text};
  PlannedDisk disk;
  disk.Given = text;
  disk.BusType = BusType(text.substr(0, a));
  disk.Bus = ParseNumber32(text.substr(a + 1, b - a - 1), "the bus");
  disk.Location = ParseNumber32(text.substr(b + 1, c - b - 1), "the slot");
  disk.File = text.substr(c + 1, last - c - 1);
  disk.Size = ParseSize(text.substr(last + 1));
  // The dummy checks a VHDX disk; other names get the older format's rules
  // when made, and the plan would not have checked those.
  std::string extension = disk.File.substr(disk.File.rfind('.') + 1);
  for (char& ch : extension) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
  if (disk.File.find('.') == std::string::npos || (extension != "vhdx" && extension != "avhdx"))
    throw UsageError{"a planned disk is a .vhdx file, not " + disk.File};
  if (disk.File.find('/') != std::string::npos)
    throw UsageError{"a planned disk is a bare name in the machine's folder, not " + disk.File};
  // A real disk rounds its size up to whole sectors, a dummy down.
  if (disk.Size == 0 || disk.Size % kSectorSize)
    throw UsageError{"a disk size is a positive number of whole " + std::to_string(kSectorSize) + "-byte sectors: " + text};
  return disk;
}

// The chain of causes on one line, outer meaning first.
std::string OneLine(const Common::Error& error) {
  std::string text;
  for (Common::Error e = error; e; e = e.Reason()) {
    if (!text.empty()) text += ": ";
    text += Narrow(e.GetText());
  }
  return text;
}

std::string XmlEscaped(const std::u16string& text) {
  std::string out;
  for (char c : Narrow(text)) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else out += c;
  }
  return out;
}

std::string SizeText(std::uint64_t bytes) {
  const char* units = "KMGT";
  int unit = -1;
  while (unit < 3 && bytes % 1024 == 0 && bytes >= 1024) bytes /= 1024, ++unit;
  return std::to_string(bytes) + (unit < 0 ? "" : std::string(1, units[unit]));
}

// Makes the machine the plan describes; the first refusal stops it, and
// what was made before stays for the user to see.
std::u16string CreatePlanned(Session& session, const std::u16string& storage, const std::string& name,
                             const std::string& memory, const std::vector<PlannedDisk>& disks) {
  AutoRef<SafeVM> vm;
  Check(session.Server->CreateVM(storage, Wide(name), 0, vm));
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm);
  if (!memory.empty()) Check(properties->SetProperty(u"Memory", Wide(memory)));
  for (const PlannedDisk& d : disks) {
    AutoRef<SafeHardDisk> disk;
    Check(vm->AddHardDisk(Processor::String(Wide(d.File)), d.BusType, d.Bus, d.Location, d.Size, kSectorSize, disk));
  }
  Check(Processor::QueryInterface<VirtualWareRaw::SafeVMAccess>(vm)->Close());
  std::u16string vmc;
  Check(properties->GetProperty(u"ID", vmc));
  return vmc;
}

}  // namespace

int VmPlan(Session& session, std::vector<std::string> args) {
  const char* usage =
      "usage: vrig vm plan <storage> <name> [--memory <size>] [--disk <ide|scsi>:<bus>:<slot>:<file>:<size>]... "
      "[--create]";
  std::string memory;
  std::vector<PlannedDisk> disks;
  bool create = false;
  std::vector<std::string> positional;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--create") {
      create = true;
    } else if (a == "--memory" || a == "--disk") {
      if (i + 1 == args.size()) throw UsageError{a + " needs a value"};
      if (a == "--memory") memory = ModuleValue("Memory", args[++i]);
      else disks.push_back(ParseDisk(args[++i]));
    } else if (a.starts_with("--")) {
      throw UsageError{"unknown option: " + a};
    } else {
      positional.push_back(a);
    }
  }
  if (positional.size() != 2) throw UsageError{usage};
  const std::string& name = positional[1];
  std::u16string storage = positional[0].empty() ? std::u16string() : Absolute(positional[0]);
  if (storage.empty()) {
    std::vector<std::u16string> folders;
    Check(session.Server->GetVMDefaultFolders(folders));
    if (folders.empty()) throw std::runtime_error("there is no default machines folder; name a storage");
    storage = folders.front();
  }

  // The description: nothing of it reaches the disk.
  auto objects = Processor::QueryInterface<VirtualWareRaw::ObjectManager>(session.Server);
  std::u16string id;
  Check(objects->CreateObject(u"VirtualMachine", id));
  AutoRef<SafeVM> dummy;
  Check(session.Server->GetRegisteredVM(id, dummy));
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(dummy);
  std::vector<std::string> problems;
  Check(properties->SetProperty(u"Storage", storage));
  if (Common::Error error = properties->SetProperty(u"Name", Wide(name)))
    problems.push_back("machine '" + name + "': " + OneLine(error));
  if (!memory.empty()) Check(properties->SetProperty(u"Memory", Wide(memory)));

  const std::string folder = Narrow(storage) + "/" + name + "/";
  std::printf("machine %s%s.vmc\n", folder.c_str(), name.c_str());
  if (!memory.empty()) std::printf("  memory %s\n", SizeText(std::stoull(memory)).c_str());
  std::set<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>> slots;
  for (const PlannedDisk& d : disks) {
    // The dummy lets two disks share a slot; the real machine would not.
    if (!slots.insert({d.BusType, d.Bus, d.Location}).second) {
      problems.push_back("disk " + d.Given + ": its slot is already taken by another disk of the plan");
      continue;
    }
    // Looked at, not touched: the machine would refuse to write over it.
    if (std::filesystem::exists(folder + d.File)) {
      problems.push_back("disk " + d.Given + ": the file " + folder + d.File + " exists");
      continue;
    }
    AutoRef<SafeHardDisk> disk;
    if (Common::Error error = dummy->AddHardDisk(Processor::String(Wide(d.File)), d.BusType, d.Bus, d.Location,
                                                 d.Size, kSectorSize, disk)) {
      problems.push_back("disk " + d.Given + ": " + OneLine(error));
      continue;
    }
    AutoRef<VirtualWareRaw::SafeRawHardDisk> raw;
    VirtualMachineDiskEx* sectors = nullptr;
    Check(disk->GetRawDisk(raw));
    Check(raw->GetDisk(sectors));
    const Fdisk::Geometry g = sectors->GetGeometry();
    std::printf("  disk %s %u:%u %s%s %s, %llu sectors of %u bytes, CHS %u/%u/%u\n",
                d.BusType ? "scsi" : "ide", d.Bus, d.Location, folder.c_str(), d.File.c_str(),
                SizeText(d.Size).c_str(), static_cast<unsigned long long>(sectors->GetLastSector() + 1),
                sectors->GetSectorSize(), g.Cylinders, g.MaxHead + 1u, g.SectorsPerTrack);
  }
  if (!problems.empty()) {
    std::fprintf(stderr, "vrig: the machine cannot be made:\n");
    for (const std::string& p : problems) std::fprintf(stderr, "  %s\n", p.c_str());
    return 1;
  }
  if (!create) {
    std::printf("nothing is in the way; --create makes it\n");
    return 0;
  }

  const std::u16string vmc = CreatePlanned(session, storage, name, memory, disks);
  std::u16string unused;
  Check(objects->CreateObject(
      Wide("<link><alias>" + XmlEscaped(id) + "</alias><id>" + XmlEscaped(vmc) + "</id></link>"), unused));
  AutoRef<SafeVM> linked;
  Check(session.Server->GetRegisteredVM(id, linked));
  std::u16string reached;
  Check(Processor::QueryInterface<VirtualWareRaw::PropertySet>(linked)->GetProperty(u"ID", reached));
  std::printf("created %s; the plan %s now leads to it\n", Narrow(reached).c_str(), Narrow(id).c_str());
  return 0;
}

}  // namespace vrig
