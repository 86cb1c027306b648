#include <string>

#include <gtest/gtest.h>

#include "vhdx/format/file_validator.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/test_files.h"
#include "vhdx/file/writeable_file.h"

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

class HeaderTest : public ::testing::Test {
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

  VhdxTest::ScriptedFile raw;
  Vhdx::WriteableFile file{raw};
  VhdxTest::LoggingFile logged{file};
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

}  // namespace
