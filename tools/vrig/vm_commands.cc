// vrig vm: machines on disk, through the module's interfaces.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "cli.h"
#include "json.h"
#include "vhdx_access.h"

namespace vrig {
namespace {

using Processor::AutoRef;
using VirtualWareRaw::SafeVM;

AutoRef<SafeVM> OpenMachine(Session& session, const std::string& vmc) {
  AutoRef<SafeVM> vm;
  InContext("cannot open machine '" + vmc + "'", [&] { Check(session.Server->GetRegisteredVM(Absolute(vmc), vm)); });
  return vm;
}

std::string Property(const AutoRef<SafeVM>& vm, const char16_t* name) {
  return PropertyText(*Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm), name);
}

// Changes go to the file when the machine is closed; a refusal there is the
// command's failure.
void CloseForWriting(const AutoRef<SafeVM>& vm) {
  Check(Processor::QueryInterface<VirtualWareRaw::SafeVMAccess>(vm)->Close());
}

void Need(const std::vector<std::string>& args, std::size_t count, const char* form) {
  NeedArgs({args.begin() + 1, args.end()}, count, std::string("vrig vm ") + form);
}

// The machine keeps its memory in whole mebibytes, in 32 bits.
constexpr std::uint64_t kMiB = 1 << 20;

std::string MemoryText(const std::string& mebibytes) {
  std::uint64_t value = 0;
  try {
    value = ParseNumber(mebibytes, "memory");
  } catch (const UsageError&) {
    return mebibytes;  // not a number: shown as the file has it
  }
  if (value != 0 && value % (1 << 20) == 0) return std::to_string(value >> 20) + "T";
  if (value != 0 && value % (1 << 10) == 0) return std::to_string(value >> 10) + "G";
  return std::to_string(value) + "M";
}

// The machines of a storage folder: each <name>/<name>.vmc there, opened
// through the module. One that does not open is reported, and the others
// are still listed; the status is then 1.
int List(Session& session, const std::string& storage, bool json) {
  std::vector<std::string> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(storage, error)) {
    const std::string name = entry.path().filename().string();
    const std::filesystem::path vmc = entry.path() / (name + ".vmc");
    if (entry.is_directory() && std::filesystem::is_regular_file(vmc)) found.push_back(vmc.string());
  }
  if (error) throw std::runtime_error("cannot list '" + storage + "': " + error.message());
  std::sort(found.begin(), found.end());
  Json out;
  out.BeginArray();
  int status = 0;
  for (const std::string& vmc : found) {
    try {
      AutoRef<SafeVM> vm = OpenMachine(session, vmc);
      const std::string name = Property(vm, u"Name"), id = Property(vm, u"ID");
      if (json) out.BeginObject().Key("name").String(name).Key("path").String(id).EndObject();
      else std::printf("%s\t%s\n", name.c_str(), id.c_str());
    } catch (const Failure& failure) {
      for (const std::string& line : FailureLines(failure)) std::fprintf(stderr, "%s\n", line.c_str());
      status = 1;
    }
  }
  out.EndArray();
  if (json) std::fputs(out.Text().c_str(), stdout);
  return status;
}

}  // namespace

// The module itself would silently round memory down, wrap it, or keep one
// processor: vrig refuses such values with what the machine can hold.
std::string ModuleValue(const std::string& property, const std::string& value) {
  if (property == "ID" || property == "FileName" || property == "GuestOS" || property == "PowerState")
    throw std::runtime_error(property + " is read-only; vrig can set Name, Memory and FirmwareType");
  if (property == "CPUs") {
    if (value != "1") throw std::runtime_error("a machine has one processor; CPUs cannot be changed");
    return value;
  }
  if (property == "Memory") {
    const std::uint64_t bytes = ParseSize(value);
    if (bytes < kMiB || bytes % kMiB != 0 || (bytes >> 20) > UINT32_MAX)
      throw std::runtime_error("memory is kept in whole mebibytes from 1M to 4294967295M; " + value +
                               " is not (a number without a unit is bytes: write 4096M or 4G)");
    return std::to_string(bytes);
  }
  if (property == "FirmwareType") {
    if (value == "0" || value == "bios") return "0";
    if (value == "1" || value == "efi") return "1";
    throw std::runtime_error("FirmwareType is 0 (bios) or 1 (efi), not " + value);
  }
  return value;
}

namespace {

// The module writes the template over an existing machine; vrig keeps it
// unless told.
void RefuseExistingMachine(Session& session, std::u16string storage, const std::string& name) {
  if (storage.empty()) {
    std::vector<std::u16string> folders;
    Check(session.Server->GetVMDefaultFolders(folders));
    if (folders.empty()) return;
    storage = folders.front();
  }
  auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(session.Server);
  AutoRef<VirtualWareRaw::SafeVMCollection> found;
  Check(workstation->GetRegisteredVMs(storage, Common::Credentials{}, Wide(name), found));
  std::uint32_t count = 0;
  Check(found->GetCount(count));
  if (count == 0) return;
  AutoRef<SafeVM> vm;
  Check(found->GetItem(0, vm));
  throw std::runtime_error("machine '" + Property(vm, u"ID") +
                           "' exists; --force writes a new one over it");
}

}  // namespace

int Vm(const Module& module, std::vector<std::string> args) {
  if (args.empty()) throw UsageError{"vm needs a command"};
  const std::string what = args[0];
  Session session(module);
  if (what == "create") {
    const bool force = TakeFlag(args, "--force");
    Need(args, 2, "create <storage> <name> [--force]");
    // An empty storage is the module's: it picks the default machines folder.
    std::u16string storage = args[1].empty() ? std::u16string() : Absolute(args[1]);
    if (!force) RefuseExistingMachine(session, storage, args[2]);
    AutoRef<SafeVM> vm;
    Check(session.Server->CreateVM(storage, Wide(args[2]), 0, vm));
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else if (what == "show") {
    const bool json = TakeFlag(args, "--json");
    Need(args, 1, "show <vmc> [--json]");
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    PrintProperties(*Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm), json,
                    [](const std::u16string& name, const std::string& text) {
                      return name == u"Memory" ? MemoryText(text) : text;
                    });
  } else if (what == "list") {
    const bool json = TakeFlag(args, "--json");
    Need(args, 1, "list <storage> [--json]");
    return List(session, args[1], json);
  } else if (what == "set") {
    Need(args, 3, "set <vmc> <property> <value>");
    const std::string value = ModuleValue(args[2], args[3]);
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    Check(Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm)->SetProperty(Wide(args[2]),
                                                                                 Wide(value)));
    CloseForWriting(vm);
  } else if (what == "rename") {
    Need(args, 2, "rename <vmc> <new name>");
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    Check(Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm)->SetProperty(u"Name",
                                                                                 Wide(args[2])));
    CloseForWriting(vm);
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else if (what == "rm") {
    Need(args, 1, "rm <vmc>");
    Check(session.Server->RemoveVM(Absolute(args[1])));
  } else if (what == "disk") {
    return VmDisk(session, std::vector<std::string>(args.begin() + 1, args.end()));
  } else if (what == "plan") {
    return VmPlan(session, std::vector<std::string>(args.begin() + 1, args.end()));
  } else if (what == "find") {
    Need(args, 2, "find <storage> <name>");
    auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(session.Server);
    AutoRef<VirtualWareRaw::SafeVMCollection> found;
    Check(workstation->GetRegisteredVMs(Absolute(args[1]), Common::Credentials{}, Wide(args[2]), found));
    std::uint32_t count = 0;
    Check(found->GetCount(count));
    if (count == 0) {
      std::fprintf(stderr, "vrig: no machine '%s' in '%s'\n", args[2].c_str(), args[1].c_str());
      return 1;
    }
    AutoRef<SafeVM> vm;
    Check(found->GetItem(0, vm));
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else {
    throw UsageError{"unknown vm command '" + what + "'"};
  }
  return 0;
}

}  // namespace vrig
