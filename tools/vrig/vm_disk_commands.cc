// vrig vm disk: a machine's hard disks through the module's interfaces, as
// a host reaches them: the machine's list, its raw disk, the sectors and
// the raw metadata items of the disk behind it.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "cli.h"
#include "sector_stream.h"
#include "vhdx_access.h"

namespace vrig {
namespace {

using Processor::AutoRef;
using VirtualWareRaw::SafeHardDisk;
using VirtualWareRaw::SafeHardDiskCollection;
using VirtualWareRaw::SafeVM;

constexpr const char* kBusNames[] = {"ide", "scsi"};

struct DiskSlot {
  AutoRef<SafeHardDisk> Disk;
  std::uint32_t BusType = 0, Bus = 0, Location = 0;
  std::string File;
};

std::vector<DiskSlot> Disks(const AutoRef<SafeVM>& vm) {
  AutoRef<SafeHardDiskCollection> disks;
  Check(vm->GetHardDisks(disks));
  std::uint32_t count = 0;
  Check(disks->GetCount(count));
  std::vector<DiskSlot> slots(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    DiskSlot& slot = slots[i];
    Processor::String file;
    Check(disks->GetItem(i, slot.Disk));
    Check(slot.Disk->GetBusType(slot.BusType));
    Check(slot.Disk->GetBusId(slot.Bus));
    Check(slot.Disk->GetLocation(slot.Location));
    Check(slot.Disk->GetFileName(file));
    slot.File = Narrow(file.ToU16());
  }
  return slots;
}

std::string Canonical(const std::string& path) {
  return std::filesystem::weakly_canonical(std::filesystem::path(Narrow(Absolute(path)))).string();
}

// The listed disk whose file is `path`; a file the machine does not list
// is refused rather than guessed at.
DiskSlot Find(const AutoRef<SafeVM>& vm, const std::string& path) {
  const std::string wanted = Canonical(path);
  for (DiskSlot& slot : Disks(vm))
    if (Canonical(slot.File) == wanted) return slot;
  throw std::runtime_error("the machine has no disk '" + wanted + "'");
}

VirtualMachineDiskEx& Open(const DiskSlot& slot, AutoRef<VirtualWareRaw::SafeRawHardDisk>& raw) {
  Check(slot.Disk->GetRawDisk(raw));
  VirtualMachineDiskEx* disk = nullptr;
  Check(raw->GetDisk(disk));
  return *disk;
}

void CheckRange(VirtualMachineDiskEx& disk, std::uint64_t first, std::uint64_t count) {
  const std::uint64_t sectors = disk.GetLastSector() + 1;
  if (first > sectors || count > sectors - first)
    throw std::runtime_error("sectors " + std::to_string(first) + " to " + std::to_string(first + count) +
                             " lie beyond the disk's " + std::to_string(sectors));
}

std::vector<std::uint8_t> FromHex(const std::string& text) {
  if (text.size() % 2 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
    throw UsageError{"not hexadecimal bytes in pairs: " + text};
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int value = std::stoi(text.substr(i, 2), nullptr, 16);
    bytes.push_back(static_cast<std::uint8_t>(value));
  }
  return bytes;
}

void Need(const std::vector<std::string>& args, std::size_t count, const char* form) {
  NeedArgs({args.begin() + 1, args.end()}, count, std::string("vrig vm disk ") + form);
}

}  // namespace

std::uint32_t BusType(const std::string& name) {
  if (name == "ide") return 0;
  if (name == "scsi") return 1;
  throw UsageError{"the bus is ide or scsi, not " + name};
}

int VmDisk(Session& session, const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"vm disk needs a command"};
  const std::string& what = args[0];
  const auto machine = [&](const std::string& vmc) {
    AutoRef<SafeVM> vm;
    Check(session.Server->GetRegisteredVM(Absolute(vmc), vm));
    return vm;
  };
  if (what == "add" || what == "attach") {
    const bool add = what == "add";
    add ? Need(args, 6, "add <vmc> <ide|scsi> <bus> <slot> <file> <size>[K|M|G|T]")
        : Need(args, 5, "attach <vmc> <ide|scsi> <bus> <slot> <existing file>");
    AutoRef<SafeVM> vm = machine(args[1]);
    const std::uint32_t busType = BusType(args[2]);
    const std::uint32_t bus = ParseNumber32(args[3], "the bus");
    const std::uint32_t location = ParseNumber32(args[4], "the slot");
    // A bare name is the machine's own folder's; a path is taken from here.
    const std::u16string file = args[5].find('/') == std::string::npos ? Wide(args[5]) : Absolute(args[5]);
    AutoRef<SafeHardDisk> disk;
    Check(add ? vm->AddHardDisk(Processor::String(file), busType, bus, location, ParseSize(args[6]), 512, disk)
              : vm->AddExistingHardDisk(Processor::String(file), busType, bus, location, 0, disk));
    Processor::String name;
    Check(disk->GetFileName(name));
    std::printf("%s\n", Narrow(name.ToU16()).c_str());
  } else if (what == "list") {
    Need(args, 1, "list <vmc>");
    for (const DiskSlot& slot : Disks(machine(args[1])))
      std::printf("%s %u:%u %s\n", kBusNames[slot.BusType & 1], slot.Bus, slot.Location, slot.File.c_str());
  } else if (what == "rm") {
    std::vector<std::string> rest = args;
    const auto flag = std::find(rest.begin(), rest.end(), "--delete");
    const bool deleteFile = flag != rest.end();
    if (deleteFile) rest.erase(flag);
    Need(rest, 2, "rm <vmc> <file> [--delete]");
    AutoRef<SafeVM> vm = machine(rest[1]);
    const DiskSlot slot = Find(vm, rest[2]);
    Check(vm->RemoveHardDisk(slot.BusType, slot.Bus, slot.Location, deleteFile));
  } else if (what == "read" || what == "write") {
    const bool read = what == "read";
    read ? Need(args, 4, "read <vmc> <file> <sector> <count>") : Need(args, 3, "write <vmc> <file> <sector>");
    AutoRef<SafeVM> vm = machine(args[1]);
    AutoRef<VirtualWareRaw::SafeRawHardDisk> raw;
    VirtualMachineDiskEx& disk = Open(Find(vm, args[2]), raw);
    const std::uint64_t first = ParseNumber(args[3], "the first sector");
    const auto access = [&](std::uint32_t operation, std::uint64_t sector, std::uint64_t count, void* buffer) {
      CheckRange(disk, sector, count);
      Check(disk.Access(operation, sector, count, buffer));
    };
    if (read) {
      const std::uint64_t count = ParseNumber(args[4], "the count");
      CheckRange(disk, first, count);
      SectorsToStdout(first, count, disk.GetSectorSize(), [&](std::uint64_t s, std::uint64_t n, void* b) {
        access(Fdisk::kAccessRead, s, n, b);
      });
    } else {
      CheckRange(disk, first, 0);
      StdinToSectors(first, disk.GetSectorSize(), [&](std::uint64_t s, std::uint64_t n, const void* b) {
        access(Fdisk::kAccessWrite, s, n, const_cast<void*>(b));
      });
    }
  } else if (what == "meta") {
    if (args.size() != 3 && args.size() != 5 && args.size() != 7)
      throw UsageError{"usage: vrig vm disk meta <vmc> <file> [<guid> <flags> [--set <hex bytes>]]"};
    AutoRef<SafeVM> vm = machine(args[1]);
    AutoRef<VirtualWareRaw::SafeRawHardDisk> raw;
    VirtualMachineDiskEx& disk = Open(Find(vm, args[2]), raw);
    if (args.size() == 3) {
      std::vector<MetadataKey> keys;
      Check(disk.GetMetadataKeys(keys));
      for (const MetadataKey& key : keys) std::printf("%s %u\n", key.Guid.c_str(), key.Flags);
      return 0;
    }
    const MetadataKey key{args[3], ParseNumber32(args[4], "the flags")};
    if (args.size() == 7) {
      if (args[5] != "--set") throw UsageError{"unknown option: " + args[5]};
      Check(disk.SetMetadata(key, FromHex(args[6])));
      return 0;
    }
    std::vector<std::uint8_t> bytes;
    Check(disk.GetMetadata(key, bytes));
    for (std::uint8_t b : bytes) std::printf("%02x", b);
    std::printf("\n");
  } else {
    throw UsageError{"unknown vm disk command '" + what + "'"};
  }
  return 0;
}

}  // namespace vrig
