#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/disk/create.h"
#include "virtual_disks/virtual_machine_disk.h"

namespace {

// The facade over a real container: sectors through Access, the size and
// geometry taken at construction, changes of "*", and an open failure kept
// and answered by every operation.
TEST(VirtualMachineDiskTest, AContainerThroughTheFacadeAndAFailureKept) {
  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
  Vhdx::Create(*folder, u"d.vhdx", Vhdx::kCreateDynamic, {8 << 20, 512});
  std::unique_ptr<VirtualMachineDiskEx> disk = VirtualDisks::OpenVhdxDisk(*folder, u"d.vhdx", 3, nullptr);
  EXPECT_EQ(disk->GetSectorSize(), 512u);
  EXPECT_EQ(disk->GetLastSector(), 16383u);
  EXPECT_EQ(disk->GetGeometry(), (Fdisk::Geometry{17, 3, 16384 / 68}));
  std::string data(1024, 'd'), back(1024, '\0');
  EXPECT_TRUE(disk->Access(Fdisk::kAccessWrite, 9000, 2, data.data()).IsEmpty());
  EXPECT_TRUE(disk->Access(1, 9000, 2, back.data()).IsEmpty());  // no such operation: nothing moves
  EXPECT_EQ(back, std::string(1024, '\0'));
  EXPECT_TRUE(disk->Access(Fdisk::kAccessRead, 9000, 2, back.data()).IsEmpty());
  EXPECT_EQ(back, data);
  std::vector<Fdisk::Interval> changed;
  EXPECT_TRUE(disk->GetChangedSectors("*", {0, 100000}, changed).IsEmpty());
  EXPECT_EQ(changed, (std::vector<Fdisk::Interval>{{8192, 8192}}));
  void* handle = &handle;
  EXPECT_EQ(disk->GetPlatformHandle(handle).Code(), 0x100401u);
  try {
    disk->GetCurrentChangeID();
    ADD_FAILURE() << "no tracker, no change ID";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), 0x3C003Bu);
  }

  std::unique_ptr<VirtualMachineDiskEx> missing = VirtualDisks::OpenVhdxDisk(*folder, u"none.vhdx", 1, nullptr);
  EXPECT_EQ(missing->GetLastSector(), 0u);
  const Common::Error first = missing->Access(Fdisk::kAccessRead, 0, 1, back.data());
  EXPECT_EQ(first.Code(), 0x3C002Cu);
  EXPECT_EQ(missing->GetChangedSectors("*", {0, 1}, changed).Record(), first.Record()) << "the one kept failure";
  std::vector<MetadataKey> keys;
  EXPECT_EQ(missing->GetMetadataKeys(keys).Record(), first.Record());
}

// Raw items: a user item set, listed, read back and found, across a reopen;
// the engine's own items neither listed nor settable; keys that are no GUID.
TEST(VirtualMachineDiskTest, RawMetadataItems) {
  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
  ASSERT_TRUE(VirtualDisks::CreateVhdxDisk(*folder, u"m.vhdx", 2048, 4096, 3, 0).IsEmpty());
  const MetadataKey user{"0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0", 1};  // a user item
  const std::vector<std::uint8_t> bytes{1, 2, 3, 4, 5};
  {
    auto disk = VirtualDisks::OpenVhdxDisk(*folder, u"m.vhdx", 3, nullptr);
    EXPECT_EQ(disk->GetLastSector(), 2047u) << "512-byte sectors whatever was asked";
    bool found = true;
    EXPECT_TRUE(disk->HasMetadata(user, found).IsEmpty());
    EXPECT_FALSE(found);
    std::vector<std::uint8_t> back;
    EXPECT_EQ(disk->GetMetadata(user, back).Code(), 0x3C0039u);
    EXPECT_TRUE(disk->SetMetadata(user, bytes).IsEmpty());
    // File Parameters is the engine's: setting it is refused.
    EXPECT_EQ(disk->SetMetadata({"CAA16737-FA36-4D43-B3B6-33F0AA44E76B", 4}, bytes).Code(), 0x3C0037u);
  }
  auto disk = VirtualDisks::OpenVhdxDisk(*folder, u"m.vhdx", 3, nullptr);
  std::vector<MetadataKey> keys;
  ASSERT_TRUE(disk->GetMetadataKeys(keys).IsEmpty());
  std::string listed;
  for (const MetadataKey& key : keys) listed += key.Guid + "/" + std::to_string(key.Flags) + " ";
  EXPECT_NE(listed.find(user.Guid + "/1 "), std::string::npos) << listed;
  EXPECT_EQ(listed.find("CAA16737"), std::string::npos) << "the engine's own item: " << listed;
  std::vector<std::uint8_t> back;
  EXPECT_TRUE(disk->GetMetadata(user, back).IsEmpty());
  EXPECT_EQ(back, bytes);
  bool found = false;
  EXPECT_TRUE(disk->HasMetadata(user, found).IsEmpty());
  EXPECT_TRUE(found);
  EXPECT_TRUE(disk->HasMetadata({"abc", 0}, found).IsEmpty());
  EXPECT_FALSE(found);
  EXPECT_EQ(disk->GetMetadata({"abc", 0}, back).Code(), 0x3C0038u);
  EXPECT_EQ(disk->SetMetadata({"abc", 0}, bytes).Code(), 0x3C0038u);
  EXPECT_EQ(VirtualDisks::CreateVhdxDisk(*folder, u"f.vhdx", 2048, 512, 3, 1).Code(), 0x100401u)
      << "a fixed container is not built";
}

}  // namespace
