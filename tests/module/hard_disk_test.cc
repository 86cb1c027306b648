// A machine's hard disks through the loaded module, as a host works with
// them: add, list, sectors, remove, and what the .vmc file then says.
#include <filesystem>

#include "loaded_module.h"

namespace ModuleTest {
namespace {

using VirtualWareRaw::SafeHardDiskCollection;

class HardDiskTest : public ServerOnRoot {
 protected:
  // A new machine whose file has `bus` in place of its empty PCI bus,
  // opened again from that file.
  AutoRef<SafeVM> WithBus(const std::string& name, const std::string& bus) {
    Create(Common::FromUtf8(name));
    std::string text = ReadBytes(VmcPath(name));
    text.replace(text.find("<pci_bus/>"), 10, "<pci_bus><ide_adapter><ide_controller id=\"0\">" + bus +
                                                  "</ide_controller></ide_adapter></pci_bus>");
    WriteBytes(VmcPath(name), text);
    return Open(VmcPath(name));
  }
};

struct Slot {
  std::uint32_t BusType, Bus, Location;
  std::u16string File;
  friend bool operator==(const Slot&, const Slot&) = default;
};

std::vector<Slot> List(const AutoRef<SafeVM>& vm) {
  AutoRef<SafeHardDiskCollection> disks;
  const Common::Error error = vm->GetHardDisks(disks);
  EXPECT_TRUE(error.IsEmpty()) << Text(error);
  std::vector<Slot> slots;
  std::uint32_t count = 0;
  if (disks) disks->GetCount(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    AutoRef<SafeHardDisk> disk;
    Slot slot{};
    Processor::String file;
    disks->GetItem(i, disk);
    disk->GetBusType(slot.BusType);
    disk->GetBusId(slot.Bus);
    disk->GetLocation(slot.Location);
    disk->GetFileName(file);
    slot.File = file.ToU16();
    slots.push_back(slot);
  }
  AutoRef<SafeHardDisk> none;
  if (disks) {
    EXPECT_EQ(disks->GetItem(count, none).Code(), 0x530023u);
  }
  return slots;
}

// The road of one request: a new machine, a disk added, a sector written
// and read back through the disk the module hands out, and the container
// readable by another tool afterwards.
TEST_F(HardDiskTest, AddWriteReadAndListThroughTheContract) {
  AutoRef<SafeVM> vm = Create(u"Web");
  ASSERT_TRUE(vm);
  AutoRef<SafeHardDisk> disk;
  Common::Error error = vm->AddHardDisk(Processor::String(u"system"), 1, 0, 3, 64 << 20, 512, disk);
  ASSERT_TRUE(error.IsEmpty()) << Text(error);
  const std::string file = dir.Join("Web/system.vhdx");
  ASSERT_TRUE(Exists(file));
  VirtualMachineDiskEx* ex = DiskOf(disk);
  ASSERT_TRUE(ex);
  // A name without ".vhdx" is sized by the older format's rules, whole
  // cylinders of 255 heads and 63 sectors on SCSI, and made as VHDX.
  EXPECT_EQ(ex->GetLastSector(), 8u * 16065 - 1);
  EXPECT_EQ(ex->GetSectorSize(), 512u);
  std::string data(1024, 'x'), back(1024, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7);
  ASSERT_TRUE(ex->Access(Fdisk::kAccessWrite, 4097, 2, data.data()).IsEmpty());
  ASSERT_TRUE(ex->Access(Fdisk::kAccessRead, 4097, 2, back.data()).IsEmpty());
  EXPECT_EQ(back, data);
  std::vector<Fdisk::Interval> changed;
  ASSERT_TRUE(ex->GetChangedSectors("*", {0, 1u << 20}, changed).IsEmpty());
  EXPECT_EQ(changed, (std::vector<Fdisk::Interval>{{0, 8192}})) << "the one 4 MiB block written";

  // Sizes round up to whole sectors; "a.VHDX" keeps its name.
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"a.VHDX"), 0, 1, 0, 1000, 512, disk).IsEmpty());
  EXPECT_EQ(DiskOf(disk)->GetLastSector(), 1u);
  // A disk beyond the buses that are looked at is written, not listed.
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"far.vhdx"), 1, 7, 0, 1 << 20, 512, disk).IsEmpty());
  const std::u16string folder = dir.Wide("Web/");
  EXPECT_EQ(List(vm), (std::vector<Slot>{{0, 1, 0, folder + u"a.VHDX"}, {1, 0, 3, folder + u"system.vhdx"}}));
  EXPECT_NE(ReadBytes(VmcPath("Web")).find("<scsi_controller id=\"7\">"), std::string::npos);

  // Only the file written through the disk object and one other reader
  // agree on the bytes: qemu-img reads the container as the module wrote it.
  vm = nullptr;
  disk = nullptr;
  const std::string raw = dir.Join("raw");
  ASSERT_EQ(std::system(("qemu-img convert -f vhdx -O raw " + file + " " + raw).c_str()), 0);
  EXPECT_EQ(ReadBytes(raw).substr(4097 * 512, 1024), data);
}

TEST_F(HardDiskTest, RefusalsLeaveNoFileBehind) {
  AutoRef<SafeVM> vm = Create(u"Db");
  AutoRef<SafeHardDisk> disk;
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"one.vhdx"), 0, 0, 0, 1 << 20, 512, disk).IsEmpty());
  struct Case {
    const char16_t* File;
    std::uint32_t BusType, Bus, Location, SectorSize;
    std::uint64_t Size;
    std::uint32_t Code;
  };
  const Case cases[] = {
      {u"taken.vhdx", 0, 0, 0, 512, 1 << 20, 0x53003A},  // the slot of "one"
      {u"zero.vhdx", 0, 0, 1, 0, 1 << 20, 0x530108},     // no sector size
      {u"sata.vhdx", 2, 0, 0, 512, 1 << 20, 0x530053},   // a bus type not supported
      {u"huge.vhdx", 0, 0, 1, 512, 1ull << 47, 0x3C000B},  // past 64 TiB
      {u"old.vhd", 0, 0, 1, 512, 1 << 20, 0x3C000B},     // below the older format's least size
      {u"one.vhdx", 0, 1, 1, 512, 1 << 20, 0x530054},    // the file is there
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Common::ToUtf8(c.File));
    const Common::Error error = vm->AddHardDisk(Processor::String(c.File), c.BusType, c.Bus, c.Location,
                                                c.Size, c.SectorSize, disk);
    EXPECT_EQ(error.Code(), c.Code) << Text(error);
    if (c.Code != 0x530054) {
      EXPECT_FALSE(Exists(dir.Join("Db/" + Common::ToUtf8(c.File)))) << "nor a file of its name";
      EXPECT_FALSE(Exists(dir.Join("Db/" + Common::ToUtf8(c.File) + ".vhdx")));
    }
  }
  EXPECT_EQ(vm->AddExistingHardDisk(Processor::String(u"none.vhdx"), 0, 1, 0, 0, disk).Code(), 0x530055u);
  EXPECT_EQ(vm->RemoveHardDisk(0, 1, 1, false).GetText(), u"No disk attached in location '1:1'.");
  EXPECT_EQ(vm->ResizeHardDisk(0, 0, 0, 1).Code(), 0x530062u);
  // A failed open is the module's error with the facade's behind it.
  WriteBytes(dir.Join("Db/junk.vhdx"), std::string(4096, 'j'));
  ASSERT_TRUE(vm->AddExistingHardDisk(Processor::String(u"junk.vhdx"), 1, 0, 0, 0, disk).IsEmpty());
  AutoRef<SafeRawHardDisk> raw;
  disk->GetRawDisk(raw);
  VirtualMachineDiskEx* ex = nullptr;
  const Common::Error open = raw->GetDisk(ex);
  EXPECT_EQ(open.Code(), 0x53005Eu);
  EXPECT_FALSE(open.Reason().IsEmpty());
}

// Attach by absolute path, remove with and without the file, and a machine
// moved with its disks keeps finding them by their relative names.
TEST_F(HardDiskTest, AttachRemoveAndMove) {
  AutoRef<SafeVM> vm = Create(u"Mail");
  AutoRef<SafeHardDisk> disk;
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"inside.vhdx"), 1, 0, 0, 1 << 20, 512, disk).IsEmpty());
  ASSERT_TRUE(vm->AddHardDisk(Processor::String(u"kept.vhdx"), 1, 0, 1, 1 << 20, 512, disk).IsEmpty());
  std::filesystem::create_directories(dir.Join("store"));
  std::filesystem::rename(dir.Join("Mail/kept.vhdx"), dir.Join("store/kept.vhdx"));
  ASSERT_TRUE(vm->RemoveHardDisk(1, 0, 1, false).IsEmpty()) << "the file need not be there to detach";
  ASSERT_TRUE(vm->AddExistingHardDisk(Processor::String(dir.Wide("store/kept.vhdx")), 0, 1, 1, 0, disk).IsEmpty());
  Processor::String name;
  disk->GetFileName(name);
  EXPECT_EQ(name.ToU16(), dir.Wide("store/kept.vhdx"));
  vm = nullptr;

  std::filesystem::rename(dir.Join("Mail"), dir.Join("Moved"));
  vm = Open(dir.Join("Moved/Mail.vmc"));
  EXPECT_EQ(List(vm), (std::vector<Slot>{{0, 1, 1, dir.Wide("store/kept.vhdx")},
                                        {1, 0, 0, dir.Wide("Moved/inside.vhdx")}}));
  // Opened for reading, the machine deletes no disk file it cannot unlist.
  Access(vm)->Open(0);
  EXPECT_EQ(vm->RemoveHardDisk(1, 0, 0, true).Code(), 0x53000Cu);
  EXPECT_TRUE(Exists(dir.Join("Moved/inside.vhdx")));
  Access(vm)->Open(VirtualWareRaw::SafeVMAccess::WriteAccess);
  ASSERT_TRUE(vm->RemoveHardDisk(1, 0, 0, true).IsEmpty());
  EXPECT_FALSE(Exists(dir.Join("Moved/inside.vhdx")));
  const std::string vmc = ReadBytes(dir.Join("Moved/Mail.vmc"));
  EXPECT_EQ(vmc.find("scsi_controller"), std::string::npos) << "the emptied controller goes";
  EXPECT_NE(vmc.find("<scsi_adapter/>"), std::string::npos) << "its adapter stays: " << vmc;

  // Removing the machine removes its disks' files; a disk attached from
  // elsewhere goes as well, since the machine named it.
  vm = nullptr;
  ASSERT_TRUE(server->RemoveVM(Common::FromUtf8(dir.Join("Moved/Mail.vmc"))).IsEmpty());
  EXPECT_FALSE(Exists(dir.Join("store/kept.vhdx")));
  EXPECT_FALSE(Exists(dir.Join("Moved")));

  // A configuration that names a file that is no container does not get
  // it deleted with the machine.
  vm = Create(u"Odd");
  WriteBytes(dir.Join("notes.txt"), "not a disk");
  ASSERT_TRUE(vm->AddExistingHardDisk(Processor::String(dir.Wide("notes.txt")), 0, 0, 0, 0, disk).IsEmpty());
  vm = nullptr;
  EXPECT_EQ(server->RemoveVM(Common::FromUtf8(VmcPath("Odd"))).Reason().Code(), 0x53004Au);
  EXPECT_EQ(ReadBytes(dir.Join("notes.txt")), "not a disk");
  EXPECT_TRUE(Exists(VmcPath("Odd")));

  // A relative name that climbs out of the machine's folder is not taken:
  // the absolute path stands, and the file outside is neither listed nor
  // deleted with the disk. A name after "./" is in the machine's folder.
  WriteBytes(dir.Join("victim.vhdx"), "vhdxfile, but not the machine's");
  const auto slot = [](const std::string& id, const std::string& absolute, const std::string& relative) {
    return "<location id=\"" + id + "\"><pathname><absolute type=\"string\">" + absolute +
           "</absolute><relative type=\"string\">" + relative + "</relative></pathname></location>";
  };
  vm = WithBus("Climb", slot("0", dir.Join("Climb/gone.vhdx"), "../victim.vhdx") +
                            slot("1", "/elsewhere/near.vhdx", "./near.vhdx"));
  WriteBytes(dir.Join("Climb/near.vhdx"), "");  // a relative name counts only for a file that is there
  EXPECT_EQ(List(vm), (std::vector<Slot>{{0, 0, 0, dir.Wide("Climb/gone.vhdx")},
                                        {0, 0, 1, dir.Wide("Climb/near.vhdx")}}));
  EXPECT_FALSE(vm->RemoveHardDisk(0, 0, 0, true).IsEmpty()) << "the absolute file is not there";
  EXPECT_TRUE(Exists(dir.Join("victim.vhdx")));

  // A slot that names no file at all makes every listing fail.
  vm = WithBus("Bad", "<location id=\"0\"/>");
  AutoRef<SafeHardDiskCollection> disks;
  EXPECT_EQ(vm->GetHardDisks(disks).GetText(), u"An invalid format of configuration file.");
}

}  // namespace
}  // namespace ModuleTest
