#include <string>

#include <gtest/gtest.h>

#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/test_files.h"
#include "vhdx/file/writeable_file.h"

namespace {

using Vhdx::RegionList;
using VhdxTest::CodeOf;
namespace Format = Vhdx::Format;

constexpr std::uint64_t kTable0 = 0x30000;
constexpr std::uint64_t kTable1 = 0x40000;
constexpr std::uint32_t kInvalid = 0x3C0011;

const RegionList kTwoRegions{{Format::kBatRegionGuid, 0x300000, 0x100000, 1},
                             {Format::kMetadataRegionGuid, 0x200000, 0x100000, 1}};

class RegionTableTest : public ::testing::Test {
 protected:
  RegionTableTest() { Vhdx::RegionTableWriter::Write(file, kTwoRegions); }
  // Sets the entry count of a copy, under a matching checksum or none.
  void ForceCount(std::uint64_t table, std::uint32_t count, bool reseal = true) {
    std::string image = raw.Bytes(table, Format::kRegionTableSize);
    Vhdx::StoreLe32(reinterpret_cast<std::uint8_t*>(image.data()) + 8, count);
    if (reseal) VhdxTest::Reseal(image, 0, image.size());
    file.Write(table, image.size(), image.data());
  }
  RegionList Read() { return Vhdx::RegionTableReader::Read(file); }

  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file{raw};
  VhdxTest::LoggingFile logged{file};
};

TEST_F(RegionTableTest, BothCopiesAreWrittenAndUnknownRequiredEntriesKept) {
  RegionList regions = kTwoRegions;
  regions.insert(regions.begin() + 1, {VhdxTest::TestGuid(3), 0x900000, 0x10000, 0x12345678});
  Vhdx::RegionTableWriter::Write(logged, regions);
  EXPECT_EQ(logged.Log, (std::vector<std::string>{"W 196608 65536", "W 262144 65536"}));
  EXPECT_EQ(raw.Bytes(kTable0, 65536), raw.Bytes(kTable1, 65536));
  EXPECT_EQ(raw.Bytes(kTable0, 4), "regi");
  EXPECT_EQ(raw.Bytes(kTable0 + 8, 8), std::string("\3\0\0\0\0\0\0\0", 8));
  EXPECT_EQ(raw.Bytes(kTable0 + 112, 65536 - 112), std::string(65536 - 112, '\0'));
  EXPECT_EQ(Read(), regions);
  Vhdx::RegionTableWriter::Write(file, {});
  EXPECT_TRUE(Read().empty());
}

// A bad first copy (checksum, or a count past the table even under a good
// checksum) falls back to the second and stays as it is; two bad ones are
// refused, and so is writing more entries than fit.
TEST_F(RegionTableTest, ABadFirstCopyFallsBackToTheSecondAndStaysAsItIs) {
  ForceCount(kTable0, 2047);  // the last entry ends at the table's end
  EXPECT_EQ(Read().size(), 2047u);
  ForceCount(kTable0, 2048);  // would read past the table
  EXPECT_EQ(Read(), kTwoRegions);
  ForceCount(kTable0, 2, false);
  const std::string damaged = raw.Bytes(kTable0, 65536);
  EXPECT_EQ(Read(), kTwoRegions);
  EXPECT_EQ(raw.Bytes(kTable0, 65536), damaged);
  ForceCount(kTable1, 0xFFFFFFFF);
  const Common::Error error = VhdxTest::Raised([&] { Read(); });
  EXPECT_EQ(error.Code(), kInvalid);
  EXPECT_EQ(error.GetText(), u"The region table of the VHDX file is not valid.");
  EXPECT_EQ(CodeOf([&] { Vhdx::RegionTableWriter::Write(logged, RegionList(2048)); }), kInvalid);
  EXPECT_TRUE(logged.Log.empty());
}

TEST(GetRegionEntryByIdTest, TheFirstMatchWinsAndAMissingOneIsNamed) {
  RegionList regions = kTwoRegions;
  regions.push_back({Format::kBatRegionGuid, 0x700000, 0x100000, 0});
  EXPECT_EQ(Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid), regions[0]);
  const Common::Error error = VhdxTest::Raised([&] { Vhdx::GetRegionEntryById(regions, VhdxTest::TestGuid(1)); });
  EXPECT_EQ(error.Code(), 0x3C0018u);
  EXPECT_EQ(error.GetText(), u"Failed to find the region table entry with ID '11111111-2222-3333-0102-030405060708'.");
}

}  // namespace
