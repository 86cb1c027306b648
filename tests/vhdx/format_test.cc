// The container's own structures in the first megabyte: the checksum, the
// file identifier and version check, and the lookup in the region table.
// How headers and region tables are chosen, rewritten and renewed is seen
// through whole files in disk_test.cc and corruption_test.cc.
#include <string>

#include <gtest/gtest.h>

#include "vhdx/format/file_validator.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/test_files.h"

namespace {

using VhdxTest::CodeOf;
namespace Format = Vhdx::Format;

TEST(Crc32cTest, MatchesThePublishedChecksumAndChains) {
  EXPECT_EQ(Vhdx::Crc32c("123456789", 9), 0xE3069283u);  // the check value
  const std::string ones(32, '\xFF');                    // a vector of RFC 3720
  EXPECT_EQ(Vhdx::Crc32c(ones.data(), ones.size()), 0x62A8AB43u);
  EXPECT_EQ(Vhdx::Crc32c("56789", 5, Vhdx::Crc32c("1234", 4)), 0xE3069283u);
}

using HeaderTest = VhdxTest::MemoryFileTest;

TEST_F(HeaderTest, TheValidatorWantsTheIdentifierAndVersionOne) {
  Vhdx::ReadOnlyFile readOnly(raw);
  std::string bytes = VhdxTest::EmptyFirstMegabyte();
  const auto check = [&](std::uint16_t version, char first) {
    Vhdx::HeaderInfo info = VhdxTest::TestHeaderInfo(1);
    info.LogVersion = 77;  // not looked at
    info.Version = version;
    VhdxTest::PutHeader(bytes, 0, info, 0);
    bytes[0] = first;
    raw.Load(bytes);
    return VhdxTest::Raised([&] { Vhdx::FileValidator::CheckVersion(readOnly); });
  };
  EXPECT_EQ(check(1, 'v').Code(), 0u);
  EXPECT_EQ(check(2, 'v').GetText(), u"Invalid format version.");
  EXPECT_EQ(check(2, 'V').GetText(), u"Unknown format of the virtual disk.");  // the identifier first
  raw.Load("vhdxfile");  // too short for an identifier: the file's own error
  EXPECT_EQ(CodeOf([&] { Vhdx::FileValidator::CheckFileId(readOnly); }), 0x40002u);
}

TEST(GetRegionEntryByIdTest, TheFirstMatchWinsAndAMissingOneIsNamed) {
  const Vhdx::RegionList regions{{Format::kBatRegionGuid, 0x300000, 0x100000, 1},
                                 {Format::kMetadataRegionGuid, 0x200000, 0x100000, 1},
                                 {Format::kBatRegionGuid, 0x700000, 0x100000, 0}};
  EXPECT_EQ(Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid), regions[0]);
  const Common::Error error = VhdxTest::Raised([&] { Vhdx::GetRegionEntryById(regions, VhdxTest::TestGuid(1)); });
  EXPECT_EQ(error.Code(), 0x3C0018u);
  EXPECT_EQ(error.GetText(), u"Failed to find the region table entry with ID '11111111-2222-3333-0102-030405060708'.");
}

}  // namespace
