// The container's own structures in the first megabyte: the checksum, the
// two header copies and the write GUIDs they carry, and the region table.
#include <algorithm>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "vhdx/file/change_tracking_file.h"
#include "vhdx/file/file_modification_observer.h"
#include "vhdx/format/file_validator.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/format/write_field_modifier.h"
#include "vhdx/test_files.h"

namespace {

using Vhdx::HeaderInfo;
using VhdxTest::CodeOf;
using VhdxTest::PutHeader;
using VhdxTest::TestHeaderInfo;
using Log = std::vector<std::string>;

constexpr std::uint64_t kHeader0 = 0x10000;
constexpr std::uint64_t kHeader1 = 0x20000;
const Log kZeroThenOne{"W 65536 4096", "W 131072 4096"};

TEST(Crc32cTest, MatchesThePublishedChecksumAndChains) {
  EXPECT_EQ(Vhdx::Crc32c("123456789", 9), 0xE3069283u);  // the check value
  const std::string ones(32, '\xFF');                    // a vector of RFC 3720
  EXPECT_EQ(Vhdx::Crc32c(ones.data(), ones.size()), 0x62A8AB43u);
  EXPECT_EQ(Vhdx::Crc32c("56789", 5, Vhdx::Crc32c("1234", 4)), 0xE3069283u);
}

class HeaderTest : public VhdxTest::MemoryFileTest {
 protected:
  // Puts `bytes` in the file and reads the header in force.
  HeaderInfo Load() {
    raw.Load(bytes);
    return Vhdx::HeaderReader::Read(file);
  }
  Log Rewrite(std::uint8_t seed) {
    logged.Log.clear();
    Vhdx::HeaderWriter::Write(logged, TestHeaderInfo(seed));
    return logged.Log;
  }

  std::string bytes = VhdxTest::EmptyFirstMegabyte();
};

TEST_F(HeaderTest, TheHighestValidSequenceNumberWinsAndIndexZeroWinsATie) {
  PutHeader(bytes, 0, TestHeaderInfo(1), 0);
  PutHeader(bytes, 1, TestHeaderInfo(5), 0);
  EXPECT_EQ(Load(), TestHeaderInfo(1));
  PutHeader(bytes, 1, TestHeaderInfo(5), 7);
  EXPECT_EQ(Load(), TestHeaderInfo(5));
  PutHeader(bytes, 0, TestHeaderInfo(1), 0x8000000000000000ull);  // unsigned comparison
  EXPECT_EQ(Load(), TestHeaderInfo(1));
  bytes[kHeader0 + 200] ^= 0x10;  // the checksum no longer matches
  EXPECT_EQ(Load(), TestHeaderInfo(5));
  PutHeader(bytes, 0, TestHeaderInfo(1), 9);
  bytes[kHeader0] = 'H';  // a wrong signature counts under a matching checksum
  VhdxTest::Reseal(bytes, kHeader0, 4096);
  EXPECT_EQ(Load(), TestHeaderInfo(5));
  bytes[kHeader1 + 4] ^= 1;  // and the other copy's checksum field itself
  const Common::Error error = VhdxTest::Raised([&] { Load(); });
  EXPECT_EQ(error.Code(), 0x3C0010u);
  EXPECT_EQ(error.GetText(), u"Failed to find the current header of the VHDX file.");
}

// The writer stores SequenceNumber 0 whatever the file held, and replaces
// the copy in force last, index 0 first when neither is. Both are kept on
// purpose; these cases pin them.
TEST_F(HeaderTest, ARewriteReplacesTheCopyInForceLastAndStoresSequenceZero) {
  PutHeader(bytes, 0, TestHeaderInfo(1), 5);
  PutHeader(bytes, 1, TestHeaderInfo(3), 7);
  bytes[kHeader0 + 4000] = 'r';  // reserved, yet under the checksum
  VhdxTest::Reseal(bytes, kHeader0, 4096);
  raw.Load(bytes);
  EXPECT_EQ(Rewrite(9), kZeroThenOne);  // and no flush
  EXPECT_EQ(raw.Bytes(kHeader0 + 8, 8), std::string(8, '\0'));
  EXPECT_EQ(raw.Bytes(kHeader0, 4096), raw.Bytes(kHeader1, 4096));
  EXPECT_EQ(raw.Bytes(kHeader0 + 80, 4016), std::string(4016, '\0'));
  EXPECT_EQ(Vhdx::HeaderReader::Read(file), TestHeaderInfo(9));
  EXPECT_EQ(Rewrite(2), (Log{"W 131072 4096", "W 65536 4096"}));  // index 0 in force: index 1 first
  bytes[kHeader0 + 100] ^= 1;  // index 1 in force, index 0 damaged
  raw.Load(bytes);
  EXPECT_EQ(Rewrite(2), kZeroThenOne);
  raw.Load(VhdxTest::EmptyFirstMegabyte());  // neither valid
  EXPECT_EQ(Rewrite(4), kZeroThenOne);
  EXPECT_EQ(Vhdx::HeaderReader::Read(file), TestHeaderInfo(4));

  PutHeader(bytes, 1, TestHeaderInfo(3), 2);  // index 1 in force, index 0 damaged
  raw.Load(bytes);
  raw.WriteLimit = kHeader1 + 100;  // the second write runs out of room
  EXPECT_EQ(CodeOf([&] { Vhdx::HeaderWriter::Write(file, TestHeaderInfo(6)); }), 0x40004u);
  raw.WriteLimit = UINT64_MAX;
  EXPECT_EQ(Vhdx::HeaderReader::Read(file), TestHeaderInfo(6));  // index 1 is torn, the new index 0 stands
}

TEST_F(HeaderTest, FieldsSitAtTheirOffsetsInLittleEndianOrder) {
  const HeaderInfo info{VhdxTest::TestGuid(1), VhdxTest::TestGuid(2), VhdxTest::TestGuid(7), 0x0102, 1,
                        0x03040506, 0x0708090A0B0C0D0Eull};
  raw.Load(bytes);
  Vhdx::HeaderWriter::Write(file, info);
  const std::string h = raw.Bytes(kHeader0, 80);
  EXPECT_EQ(h.substr(0, 4), "head");
  EXPECT_EQ(h.substr(16, 16), "\x11\x11\x11\x11\x22\x22\x33\x33\x01\x02\x03\x04\x05\x06\x07\x08");
  EXPECT_EQ(h.substr(32, 4), "\x22\x22\x22\x22");
  EXPECT_EQ(h.substr(48, 4), "\x77\x77\x77\x77");
  EXPECT_EQ(h.substr(64, 16), std::string("\x02\x01\x01\x00\x06\x05\x04\x03\x0E\x0D\x0C\x0B\x0A\x09\x08\x07", 16));
  EXPECT_EQ(Vhdx::HeaderReader::Read(file), info);
}

TEST_F(HeaderTest, TheValidatorWantsTheIdentifierAndVersionOne) {
  Vhdx::ReadOnlyFile readOnly(raw);
  const auto check = [&](std::uint16_t version, char first) {
    HeaderInfo info = TestHeaderInfo(1);
    info.LogVersion = 77;  // not looked at
    info.Version = version;
    PutHeader(bytes, 0, info, 0);
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

using Vhdx::RegionList;
namespace Format = Vhdx::Format;

constexpr std::uint64_t kTable0 = 0x30000;
constexpr std::uint64_t kTable1 = 0x40000;
constexpr std::uint32_t kInvalid = 0x3C0011;

const RegionList kTwoRegions{{Format::kBatRegionGuid, 0x300000, 0x100000, 1},
                             {Format::kMetadataRegionGuid, 0x200000, 0x100000, 1}};

class RegionTableTest : public VhdxTest::MemoryFileTest {
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

// Wired as a writable open wires it: the modifier works on the raw file, the
// structure and payload files report to it.
class WriteFieldModifierTest : public VhdxTest::MemoryFileTest {
 protected:
  WriteFieldModifierTest() {
    std::string bytes = VhdxTest::EmptyFirstMegabyte();
    VhdxTest::PutHeader(bytes, 0, original, 3);
    raw.Load(bytes);
    using Observer = Vhdx::DataModificationsObserver;
    structure.Add(std::make_shared<Vhdx::FileModificationObserver>(modifier, &Observer::OnFileModified));
    data.Add(std::make_shared<Vhdx::FileModificationObserver>(modifier, &Observer::OnDataModified));
  }
  HeaderInfo Current() { return Vhdx::HeaderReader::Read(file); }
  std::size_t HeaderWrites() const {
    return std::ranges::count_if(logged.Log, [](const std::string& e) { return e.ends_with(" 4096"); });
  }

  const HeaderInfo original = VhdxTest::TestHeaderInfo(1);
  Vhdx::WriteFieldModifier modifier{logged};
  Vhdx::ChangeTrackingFile structure{logged};
  Vhdx::ChangeTrackingFile data{logged};
};

TEST_F(WriteFieldModifierTest, AStructureChangeThenAPayloadChangeRenewEachGuidOnce) {
  char buffer[4];
  structure.Read(0x10000, 4, buffer);  // reads give no notice
  data.Read(0x10000, 4, buffer);
  EXPECT_TRUE(logged.Log.empty());
  structure.Write(0x200000, 4, "meta");
  // The header was renewed before the change reached the file.
  EXPECT_EQ(logged.Log, (std::vector<std::string>{"W 131072 4096", "W 65536 4096", "W 2097152 4"}));
  const HeaderInfo afterStructure = Current();
  EXPECT_NE(afterStructure.FileWriteGuid, original.FileWriteGuid);
  EXPECT_EQ(afterStructure.DataWriteGuid, original.DataWriteGuid);
  structure.WriteZero(0x200000, 4);
  structure.Expand(0x400000);
  EXPECT_EQ(HeaderWrites(), 2u);
  data.Write(0x300000, 4, "data");
  data.Write(0x300000, 4, "more");
  structure.Write(0x200000, 4, "meta");
  EXPECT_EQ(HeaderWrites(), 4u);
  HeaderInfo expected = afterStructure;
  expected.DataWriteGuid = Current().DataWriteGuid;
  EXPECT_NE(expected.DataWriteGuid, original.DataWriteGuid);
  EXPECT_EQ(Current(), expected);  // all else as it was
}

// A payload change first renews both in one rewrite; one that fails to
// renew them does not happen, and the next change tries again.
TEST_F(WriteFieldModifierTest, APayloadChangeFirstRenewsBothInOneRewriteAndAFailedOneIsTriedAgain) {
  raw.WriteLimit = 0x10000;  // no header can be written
  EXPECT_THROW(data.Write(0x300000, 4, "data"), Common::Error);
  EXPECT_EQ(raw.Store->Size(), Vhdx::Format::kMiB);
  raw.WriteLimit = UINT64_MAX;
  logged.Log.clear();
  data.WriteZero(0x300000, 10);
  EXPECT_EQ(HeaderWrites(), 2u);
  const HeaderInfo after = Current();
  EXPECT_NE(after.FileWriteGuid, original.FileWriteGuid);
  EXPECT_NE(after.DataWriteGuid, original.DataWriteGuid);
  structure.Write(0x200000, 1, "x");
  data.Expand(0x500000);
  EXPECT_EQ(HeaderWrites(), 2u);
}

}  // namespace
