#include <pthread.h>

#include <cstring>
#include <string>
#include <cerrno>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/error_format.h"
#include "common/error_record.h"
#include "common/flat_error.h"
#include "common/message_error.h"
#include "common/message_table.h"
#include "common/site.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

bool InsideRecord(const Error& e, const void* p) {
  const auto* base = reinterpret_cast<const std::uint8_t*>(e.Record());
  const auto* q = static_cast<const std::uint8_t*>(p);
  return q >= base && q < base + e.Record()->Size;
}

TEST(ErrorTest, CodeZeroMakesNoRecordEqualityComparesCodesAndNarrowTextWidens) {
  EXPECT_EQ(Error().GetFieldNames(), nullptr);
  EXPECT_TRUE(Error().GetText().empty());
  EXPECT_TRUE(Error(VR_SITE, 0, u"ignored").IsEmpty());
  EXPECT_TRUE(Error(VR_SITE, 0, "ignored").IsEmpty());
  EXPECT_TRUE(Error::WithFileName(VR_SITE, 0, u"t", u"f").IsEmpty());
  EXPECT_EQ(Error(VR_SITE, 0x40011, u"one"), Error(VR_SITE, 0x40011, "two"));
  EXPECT_FALSE(Error(VR_SITE, 0x40011) == Error(VR_SITE, 0x40012));
  // Narrow text is widened unit by unit.
  EXPECT_EQ(Error(VR_SITE, 5, "Disk is full.").GetText(), u"Disk is full.");
  EXPECT_EQ(Error(VR_SITE, 5, "\xE9").GetText(), std::u16string(1, u'\u00E9'));
}

TEST(ErrorTest, EveryKindAnswersItsFieldListAndFields) {
  struct Case {
    Error error;
    const char* fields;
  };
  const Case cases[] = {
      {Error(VR_SITE, 1), "$module"},
      {Error(VR_SITE, 1, "narrow"), "$module"},
      {Error(VR_SITE, 1, u"wide"), "$module"},
      {Error::WithFileName(VR_SITE, 1, u"t", u"a.vhdx"), "fileName,$module"},
      {Error::WithFullPath(VR_SITE, 1, u"t", u"/x/a.vhdx", u"a.vhdx"), "FullPath,FileName,$module"},
      {Error::WithEnumValue(VR_SITE, 1, u"t", "7", "BusType"), "ErrorValue,EnumTypeName,$module"},
      {Error::ForModule(VR_SITE, 1, "libzip.so"), "path,$module"},
      {Error::ForFunction(VR_SITE, 1, "libzip.so", "zip_open"), "path,function,$module"},
      {Error::ForFunction(VR_SITE, 1, "libzip.so", std::uint64_t{12}), "path,function,$module"},
      {Error::WithSyntaxPosition(VR_SITE, 1, u"t", 3, 9), "line,column,$module"},
      {Error(VR_SITE, 1).AddWindowsError(2).Reason(), "code,$module"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fields);
    EXPECT_STREQ(c.error.GetFieldNames(), c.fields);
    EXPECT_STREQ(c.error.GetNarrowString("$module"), "vellumrig_vsa64_35791");
    EXPECT_EQ(c.error.GetNarrowString("noSuchField"), nullptr);
    EXPECT_EQ(c.error.GetNumber("noSuchField"), 0u);
  }

  const Error full = cases[4].error;
  EXPECT_EQ(std::u16string(full.GetWideString("FullPath")), u"/x/a.vhdx");
  EXPECT_EQ(std::u16string(full.GetWideString("FileName")), u"a.vhdx");
  const Error enumValue = cases[5].error;
  EXPECT_STREQ(enumValue.GetNarrowString("ErrorValue"), "7");
  EXPECT_STREQ(enumValue.GetNarrowString("EnumTypeName"), "BusType");
  // A field is read only by the accessor of its type.
  EXPECT_EQ(enumValue.GetWideString("ErrorValue"), nullptr);
  EXPECT_EQ(cases[8].error.GetNumber("function"), 12u);
  EXPECT_EQ(cases[8].error.GetNarrowString("function"), nullptr);
  EXPECT_STREQ(cases[7].error.GetNarrowString("function"), "zip_open");
  EXPECT_EQ(cases[9].error.GetNumber("column"), 9u);
  EXPECT_TRUE(cases[6].error.GetText().empty());  // kinds without text give none
}

// Table text is kept by pointer: see the bare message error below.
TEST(ErrorTest, TextOutsideTheTableIsCopied) {
  Error copied;
  {
    std::u16string local(GetMessage(Msg::InternalError));
    copied = Error(VR_SITE, 0x530040, local.c_str());
    EXPECT_LT(RecordSlots(copied.Record())[0], copied.Record()->Size);
    local.assign(local.size(), u'#');
  }
  // The record survives the buffer it was made from.
  EXPECT_EQ(copied.GetText(), u"An internal error.");
}

// Strings inside a record are offsets, so the clone a shared record needs is
// a byte copy that stands on its own.
TEST(ErrorTest, AddReasonWorksInPlaceUnlessTheRecordIsShared) {
  Error empty;
  Error cause(VR_SITE, 0x40011, u"missing");
  empty.AddReason(cause);  // an empty error becomes the cause
  EXPECT_EQ(empty.Record(), cause.Record());
  EXPECT_EQ(empty.Record()->RefCount, 2);

  Error first = Error::WithFullPath(VR_SITE, 0x530016, u"outer", u"/a/b", u"b");
  const ErrorRecord* before = first.Record();
  first.AddReason(Error(VR_SITE, 9, u"replaced"));
  first.AddReason(Error(VR_SITE, 1, u"old cause"));
  EXPECT_EQ(first.Record(), before);
  EXPECT_EQ(first.Reason().Code(), 1u);
  EXPECT_TRUE(first.Reason().Reason().IsEmpty());

  Error second = first;
  second.AddReason(Error(VR_SITE, 2, u"new cause"));
  EXPECT_NE(first.Record(), second.Record());
  EXPECT_EQ(first.Reason().Code(), 1u);
  EXPECT_EQ(second.Reason().Code(), 2u);
  // The clone carries only the new cause: the old chain is not carried over.
  EXPECT_TRUE(second.Reason().Reason().IsEmpty());
  EXPECT_EQ(first.Record()->RefCount, 1);
  first = Error();
  EXPECT_EQ(second.GetText(), u"outer");
  EXPECT_EQ(std::u16string(second.GetWideString("FileName")), u"b");
  EXPECT_EQ(std::u16string(second.GetWideString("FullPath")), u"/a/b");
  EXPECT_TRUE(InsideRecord(second, second.GetWideString("FullPath")));
}

TEST(ErrorTest, AllocationFailuresDropTheCauseOrGiveTheStaticMemoryRecord) {
  Error first(VR_SITE, 0x530016, u"outer");
  Error second = first;
  Error cause(VR_SITE, 2, u"cause");
  FailRecordAllocations(1);
  second.AddReason(cause);  // the clone fails: the error stays, the cause goes
  FailRecordAllocations(0);
  EXPECT_EQ(second.Record(), first.Record());
  EXPECT_TRUE(second.Reason().IsEmpty());
  EXPECT_EQ(cause.Record()->RefCount, 1);  // the reference taken for it was given back

  const std::int32_t before = MemoryErrorRecord().RefCount;
  {
    FailRecordAllocations(1);
    Error e(VR_SITE, 0x40011, u"would need memory");
    FailRecordAllocations(0);
    EXPECT_EQ(e.Code(), 0xFFF2u);
    EXPECT_EQ(e.Record(), &MemoryErrorRecord());
    EXPECT_STREQ(e.GetFieldNames(), "$module");
    EXPECT_EQ(e.Site().Hash, 0u);
    // Adding a cause to it clones it instead of changing the static record.
    e.AddReason(Error(VR_SITE, 3));
    EXPECT_NE(e.Record(), &MemoryErrorRecord());
    EXPECT_EQ(e.Code(), 0xFFF2u);
    EXPECT_EQ(e.Reason().Code(), 3u);
  }
  EXPECT_EQ(MemoryErrorRecord().RefCount, before);
}

// Releases a chain on a thread whose stack is far too small for a recursion
// of that depth.
TEST(ErrorTest, ReleasingAVeryLongChainNeedsNoDeepStack) {
  auto* chain = new Error;
  for (int i = 0; i < 100000; ++i) {
    Error outer(VR_SITE, static_cast<std::uint32_t>(i + 1));
    outer.AddReason(*chain);
    *chain = std::move(outer);
  }
  EXPECT_EQ(chain->Code(), 100000u);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setstacksize(&attr, 64 * 1024);
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, &attr,
                [](void* p) -> void* {
                  delete static_cast<Error*>(p);
                  return nullptr;
                },
                chain),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attr);
}

TEST(ErrorTest, WindowsErrorMapsTheCodeAndUsesTheHelpersSite) {
  Error e(VR_SITE, 0x40014, u"denied");
  e.AddWindowsError(5);
  const Error os = e.Reason();
  EXPECT_EQ(os.Code(), 0xFFF0u);
  EXPECT_EQ(os.GetNumber("code"), 0x80070005u);
  EXPECT_STREQ(os.Site().File, "core\\common\\error");
  EXPECT_STREQ(os.Site().Function, "Common::Error::AddWindowsError");
  EXPECT_EQ(os.Site().Line, 314u);
  // errno 5 is EIO; its text comes from strerror, trimmed.
  EXPECT_EQ(os.GetText(), FromUtf8(std::strerror(5)));

  // Only the low 16 bits of a large value are kept.
  for (auto [given, code] : {std::pair{-1, 0xFFFFFFFFu}, std::pair{0, 0u}, std::pair{0x12345, 0x80072345u}}) {
    Error other(VR_SITE, 1);
    other.AddWindowsError(given);
    EXPECT_EQ(other.Reason().GetNumber("code"), code) << given;
  }
}

TEST(ErrorTest, SystemTextIsTrimmed) {
  for (auto [given, trimmed] : {std::pair{u"Access is denied.\r\n", u"Access is denied"},
                                std::pair{u"First line.\r\nSecond line.\r\n", u"First line.\nSecond line."},
                                std::pair{u"No stop", u"No stop"}, std::pair{u"", u""}})
    EXPECT_EQ(TrimSystemText(given), trimmed);
  EXPECT_EQ(SystemErrorText(0x80070002u), FromUtf8(std::strerror(2)));
  // The bit that once selected another message source is cleared.
  EXPECT_EQ(SystemErrorText(0x10000002u), FromUtf8(std::strerror(2)));
}

TEST(ErrorTest, SiteHashIsTheFileConstantPlusTheLine) {
  const ErrorSite a = VR_SITE;
  const ErrorSite b = VR_SITE;
  EXPECT_EQ(b.Hash - a.Hash, 1u);
  EXPECT_EQ(a.Hash - a.Line, detail::FileConstant("tests/common/error_test.cc"));
  EXPECT_STREQ(a.File, "tests/common/error_test.cc");
  EXPECT_STREQ(detail::QualifiedName("Common::Error Common::Error::AddWindowsError(int)").Text,
               "Common::Error::AddWindowsError");
  EXPECT_STREQ(detail::QualifiedName("std::pair<int, int> X<T>::f(T) [with T = int]").Text,
               "X<T>::f");
}

TEST(ErrorTest, MessageErrorsFillPlaceholdersAndKeepBareTextsInTheTable) {
  constexpr ErrorMessage kNotSupported{0x53002C, Msg::PropertyNotSupported};
  Error filled = MessageError(VR_SITE, kNotSupported, {u"Colour"});
  EXPECT_EQ(filled.GetText(), u"Property 'Colour' is not supported.");
  EXPECT_TRUE(InsideRecord(filled, reinterpret_cast<const void*>(
                                       ResolveString(filled.Record(), RecordSlots(filled.Record())[0]))));
  Error bare = MessageError(VR_SITE, ErrorMessage{0x530040, Msg::InternalError});
  EXPECT_EQ(reinterpret_cast<const char16_t*>(RecordSlots(bare.Record())[0]),
            GetMessage(Msg::InternalError));

  const std::u16string_view two[] = {u"a", u"b"};
  EXPECT_EQ(SubstitutePlaceholders(u"{1} before {0}; {2} stays, {x} too", two, 2),
            u"b before a; {2} stays, {x} too");
  EXPECT_EQ(SubstitutePlaceholders(u"trailing {", two, 1), u"trailing {");
  // In the module the message format fills them, quotes and all.
  EXPECT_EQ(FillPlaceholders(u"\uF800{0}\uF800 is {0}", {u"a"}), u"{0} is a");
}

TEST(ErrorTest, FullTextShowsEachBlockOfTheChainOuterFirst) {
  Error outer = MessageError(VR_SITE, ErrorMessage{0x530013, Msg::CreateVMFailed}, {u"box"});
  outer.AddReason(Error::WithFileName(VR_SITE, 0x40011, u"Specified file does not exist.", u"a.vmc"));
  const std::string text = ToUtf8(FullText(outer));
  const size_t first = text.find("Failed to create virtual machine 'box'.\n\n    Error code: 0x530013");
  const size_t second = text.find("\nSpecified file does not exist.\n\n    Error code: 0x40011");
  ASSERT_NE(first, std::string::npos) << text;
  ASSERT_NE(second, std::string::npos) << text;
  EXPECT_LT(first, second);
  EXPECT_NE(text.find("\n    fileName = \"a.vmc\",\n    $module = \"vellumrig_vsa64_35791\""),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(" : tests/common/error_test.cc("), std::string::npos) << text;

  // A record without text shows what its code means; a missing field "0 (0x0)".
  Error file(VR_SITE, 0x40011);
  file.AddReason(Error(VR_SITE, 0x7).AddWindowsError(ENOSPC));
  const std::string fallback = ToUtf8(FullText(file));
  EXPECT_EQ(fallback.find("Specified file does not exist.\n\n    Error code: 0x40011"), 0u) << fallback;
  EXPECT_NE(fallback.find("No space left on device"), std::string::npos) << fallback;
  EXPECT_EQ(ErrorFieldValue(file, "nothing", true), u"0 (0x0)");
}

TEST(ErrorTest, CopiesAcrossThreadsKeepTheCountExact) {
  Error shared(VR_SITE, 9, u"shared");
  std::thread workers[4];
  for (auto& w : workers)
    w = std::thread([&shared] {
      for (int i = 0; i < 20000; ++i) {
        Error copy = shared;
        Error reason = copy.Reason();
      }
    });
  for (auto& w : workers) w.join();
  EXPECT_EQ(shared.Record()->RefCount, 1);
}

// Flat errors: the chain as a byte stream that crosses a process boundary.
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
