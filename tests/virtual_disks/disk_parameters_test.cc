#include <gtest/gtest.h>

#include "virtual_disks/disk_parameters.h"
#include "virtual_disks/geometry.h"

namespace {

using VirtualDisks::CheckMSDiskParameters;
using VirtualDisks::CheckVhdxDiskParameters;
using VirtualDisks::ComputeGeometry;

TEST(DiskParametersTest, TheBoundsAreExactAndTheFirstFailureCounts) {
  constexpr std::uint64_t k64TiBOf4K = 0x400000000000 / 4096;
  EXPECT_TRUE(CheckVhdxDiskParameters(k64TiBOf4K, 4096).IsEmpty());
  EXPECT_EQ(CheckVhdxDiskParameters(k64TiBOf4K + 1, 4096).Code(), 0x3C000Bu);
  EXPECT_EQ(CheckVhdxDiskParameters(UINT64_MAX / 512 + 1, 512).Code(), 0x3C000Bu) << "no wrap";
  const Common::Error sector = CheckVhdxDiskParameters(UINT64_MAX, 1024);
  EXPECT_EQ(sector.Code(), 0x3C003Au);
  EXPECT_EQ(sector.GetText(),
            u"The target sector size of the virtual disk is not supported by the selected virtual machine.");

  EXPECT_EQ(CheckMSDiskParameters(6143, 512, 1).Code(), 0x3C000Bu);
  EXPECT_TRUE(CheckMSDiskParameters(6144, 512, 1).IsEmpty());
  EXPECT_TRUE(CheckMSDiskParameters(4278190080, 512, 3).IsEmpty());
  EXPECT_EQ(CheckMSDiskParameters(4278190081, 512, 3).Code(), 0x3C000Bu);
  EXPECT_EQ(CheckMSDiskParameters(6144, 512, 2).GetText(), u"An invalid adapter.");
  EXPECT_EQ(CheckMSDiskParameters(1, 4096, 2).Code(), 0x3C003Au);
}

TEST(DiskParametersTest, GeometryFollowsTheDiskTypesRules) {
  struct Case {
    std::uint32_t type;
    std::uint64_t sectors;
    Fdisk::Geometry expected;
  };
  for (const Case& c : {
           Case{1, 16065, {63, 254, 1023}}, Case{1, 16066, {63, 254, 1}}, Case{1, 160650, {63, 254, 10}},
           Case{2, 1 << 20, {}}, Case{3, 0x10FFF, {17, 3, 0x10FFF / 68}},  // rounded to 68, 4 heads
           Case{3, 0x7BFFF, {31, 15, 0x7BFFF / (16 * 31)}}, Case{3, 66059279, {63, 254, 66059279 / (255 * 63)}},
           Case{3, 0x100000, {63, 31, 0x100000 / (32 * 63)}}}) {
    SCOPED_TRACE(testing::Message() << c.type << " " << c.sectors);
    const Fdisk::Geometry g = ComputeGeometry(c.type, c.sectors);
    EXPECT_EQ(+g.SectorsPerTrack, +c.expected.SectorsPerTrack);
    EXPECT_EQ(+g.MaxHead, +c.expected.MaxHead);
    EXPECT_EQ(g.Cylinders, c.expected.Cylinders);
  }
}

}  // namespace
