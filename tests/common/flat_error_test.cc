#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/flat_error.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

FlatRecord Record(std::uint32_t code, std::string text, std::vector<FlatRecord::Field> fields = {}) {
  FlatRecord r;
  r.Code = code;
  r.SiteHash = 0x1122334455667788ull + code;
  r.Text = std::move(text);
  r.Fields = std::move(fields);
  return r;
}

TEST(FlatErrorTest, RecordsBecomeAChainWithTheirFieldsAndSites) {
  const auto stream = WriteFlatError({
      Record(0x40001, "Read failed \xC3\xA4",
             {{"$file", 'A', "reader.cc", 0},
              {"$func", 'A', "Reader::Read", 0},
              {"$line", 'N', {}, 42},
              {"archive", 'W', "/tmp/m\xC3\xBCnchen.so", 0},
              {"entry", 'A', "de/vellumrig.msg", 0},
              {"offset", 'N', {}, 0x1234}}),
      Record(0xFFF0, "", {{"code", 'N', {}, 0x80070005}}),
  });
  const Error e = ParseFlatError(stream.data(), stream.size());
  ASSERT_EQ(e.Code(), 0x40001u);
  EXPECT_EQ(e.GetText(), u"Read failed \u00E4");
  EXPECT_STREQ(e.GetFieldNames(), "archive,entry,offset");
  EXPECT_EQ(std::u16string(e.GetWideString("archive")), u"/tmp/m\u00FCnchen.so");
  EXPECT_STREQ(e.GetNarrowString("entry"), "de/vellumrig.msg");
  EXPECT_EQ(e.GetNumber("offset"), 0x1234u);
  // A field answers only to the accessor of its type.
  EXPECT_EQ(e.GetNarrowString("archive"), nullptr);
  EXPECT_EQ(e.GetWideString("offs"), nullptr);
  EXPECT_STREQ(e.GetNarrowString("$module"), "vellumrig_vsa64_35791");
  EXPECT_EQ(e.Site().Hash, 0x1122334455667788ull + 0x40001);
  EXPECT_STREQ(e.Site().File, "reader.cc");
  EXPECT_STREQ(e.Site().Function, "Reader::Read");
  EXPECT_EQ(e.Site().Line, 42u);

  const Error cause = e.Reason();
  EXPECT_EQ(cause.Code(), 0xFFF0u);
  EXPECT_EQ(cause.GetNumber("code"), 0x80070005u);
  EXPECT_EQ(cause.Site().File, nullptr);
}

TEST(FlatErrorTest, SharedFlatRecordsCloneByByteCopy) {
  const auto stream = WriteFlatError({Record(7, "seven", {{"w", 'W', "wide", 0}})});
  const Error original = ParseFlatError(stream.data(), stream.size());
  Error copy = original;
  copy.AddReason(ParseFlatError(stream.data(), stream.size()));
  ASSERT_NE(copy.Record(), original.Record());
  EXPECT_EQ(copy.GetText(), u"seven");
  EXPECT_EQ(std::u16string(copy.GetWideString("w")), u"wide");
  EXPECT_EQ(copy.Reason().Code(), 7u);
  EXPECT_TRUE(original.Reason().IsEmpty());
}

TEST(FlatErrorTest, WrongVersionsAndShortStreamsGiveTheEmptyError) {
  auto stream = WriteFlatError({Record(5, "five")});
  EXPECT_TRUE(ParseFlatError(stream.data(), 12).IsEmpty());
  EXPECT_TRUE(ParseFlatError(nullptr, 40).IsEmpty());
  stream[0] = 2;
  EXPECT_TRUE(ParseFlatError(stream.data(), stream.size()).IsEmpty());
  const auto zero = WriteFlatError({Record(0, "ends at once"), Record(5, "never read")});
  EXPECT_TRUE(ParseFlatError(zero.data(), zero.size()).IsEmpty());
}

TEST(FlatErrorTest, MalformedTailKeepsTheRecordsCompletedBeforeIt) {
  const auto good = WriteFlatError({Record(1, "first"), Record(2, "second", {{"n", 'N', {}, 9}})});
  // Cut inside the number of the second record's field.
  for (std::size_t cut = good.size() - 1; cut > good.size() - 9; --cut) {
    const Error e = ParseFlatError(good.data(), cut);
    ASSERT_EQ(e.Code(), 1u) << cut;
    EXPECT_TRUE(e.Reason().IsEmpty()) << cut;
  }
  // A type other than the three, and a text without terminator.
  auto badType = WriteFlatError({Record(1, "first"), Record(2, "second", {{"n", 'N', {}, 9}})});
  badType[badType.size() - 10] = 'Q';
  EXPECT_TRUE(ParseFlatError(badType.data(), badType.size()).Reason().IsEmpty());
  // A comma in a field name would misalign the record's name list.
  const auto comma = WriteFlatError({Record(1, "first"), Record(2, "second", {{"a,b", 'N', {}, 9}})});
  EXPECT_TRUE(ParseFlatError(comma.data(), comma.size()).Reason().IsEmpty());
  auto unterminated = WriteFlatError({Record(1, "text")});
  unterminated.resize(1 + 12 + 3);
  EXPECT_TRUE(ParseFlatError(unterminated.data(), unterminated.size()).IsEmpty());
}

TEST(FlatErrorTest, LongChainsParseAndRelease) {
  std::vector<FlatRecord> records;
  for (std::uint32_t i = 1; i <= 5000; ++i) records.push_back(Record(i, "r"));
  const auto stream = WriteFlatError(records);
  Error e = ParseFlatError(stream.data(), stream.size());
  std::uint32_t count = 0;
  for (Error r = e; !r.IsEmpty(); r = r.Reason()) ++count;
  EXPECT_EQ(count, 5000u);
}

TEST(FlatErrorTest, SiteStringsAreInternedOnce) {
  std::string a = "interned.cc";
  const char* first = InternSiteString(a.c_str());
  a[0] = 'X';
  EXPECT_STREQ(first, "interned.cc");
  EXPECT_EQ(InternSiteString("interned.cc"), first);
}

}  // namespace
}  // namespace Common
