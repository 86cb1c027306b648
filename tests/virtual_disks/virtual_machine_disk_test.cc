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
  std::unique_ptr<VirtualMachineDisk> disk = VirtualDisks::OpenVhdxDisk(*folder, u"d.vhdx", 3, nullptr);
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

  std::unique_ptr<VirtualMachineDisk> missing = VirtualDisks::OpenVhdxDisk(*folder, u"none.vhdx", 1, nullptr);
  EXPECT_EQ(missing->GetLastSector(), 0u);
  const Common::Error first = missing->Access(Fdisk::kAccessRead, 0, 1, back.data());
  EXPECT_EQ(first.Code(), 0x3C002Cu);
  EXPECT_EQ(missing->GetChangedSectors("*", {0, 1}, changed).Record(), first.Record()) << "the one kept failure";
}

}  // namespace
