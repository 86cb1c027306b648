#include <gtest/gtest.h>

#include "virtual_disks/wise_disk.h"

namespace {

// A disk that counts its own deletion, and answers with a fixed size.
class ProbeDisk : public VirtualMachineDisk {
 public:
  explicit ProbeDisk(int& deleted) : deleted_(deleted) { lastSector_ = 99; }
  ~ProbeDisk() override { ++deleted_; }
  Common::Error Access(std::uint32_t, std::uint64_t, std::uint64_t, void*) override { return Common::NoError; }
  Common::Error GetPlatformHandle(void*&) override { return Common::NoError; }
  std::string GetCurrentChangeID() override { return "id"; }
  Common::Error GetChangedSectors(const std::string&, const Fdisk::Interval&, std::vector<Fdisk::Interval>&) override {
    return Common::NoError;
  }
  std::uint32_t GetDiskType() override { return 3; }

 private:
  int& deleted_;
};

// The object lives while a strong holder does, exactly once; a weak holder
// cannot bring it back; and a WiseDisk that let its disk go says so.
TEST(WiseDiskTest, CountersOwnTheDiskAndAReleasedDiskIsRefused) {
  int deleted = 0;
  Fdisk::WiseObject<VirtualMachineDisk> first(new ProbeDisk(deleted));
  Fdisk::WeakObject<VirtualMachineDisk> weak(first);
  {
    Fdisk::WiseObject<VirtualMachineDisk> again(weak);
    EXPECT_EQ(first.UseCount(), 2u);
  }
  VirtualDisks::WiseDisk wise(first);
  first.Reset();
  EXPECT_EQ(deleted, 0) << "the WiseDisk still holds it";
  EXPECT_EQ(wise.GetLastSector(), 99u);
  EXPECT_EQ(wise.GetCurrentChangeID(), "id");

  wise.Release();
  EXPECT_EQ(deleted, 1);
  try {
    Fdisk::WiseObject<VirtualMachineDisk> revived(weak);
    ADD_FAILURE() << "an expired weak holder gave an object";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.GetText(), u"A weak reference has expired.");
  }
  testing::internal::CaptureStderr();
  EXPECT_FALSE(wise.Access(Fdisk::kAccessRead, 0, 1, nullptr).IsEmpty());
  EXPECT_NE(testing::internal::GetCapturedStderr().find("Assertion failed: Ptr != 0"), std::string::npos);

  Fdisk::Optional<int> none;
  EXPECT_THROW(none.operator->(), Common::Error);
  Fdisk::Optional<int> some(7);
  EXPECT_EQ(*some.operator->(), 7);
}

}  // namespace
