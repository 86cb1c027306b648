#include <atomic>
#include <cstdlib>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/site.h"
#include "processor/guid_text.h"
#include "processor/string_enum.h"
#include "processor/variant.h"
#include "processor/variant_allocator.h"
#include "test_objects.h"

namespace Processor {
namespace {

using testing::Utf8;

std::string Text(const Variant& v) {
  String out;
  v.ToString(out);
  return Utf8(out);
}

std::string Utf8(const std::u16string& s) { return Utf8(String(s)); }

TEST(VariantTest, ToDoubleConvertsNumbersTextsAndSizes) {
  struct Case {
    Variant value;
    double expected;
  } cases[] = {
      {Variant(u"0x10"), 16.0},
      {Variant(u" 12 "), 12.0},
      {Variant(u"10 KB"), 10240.0},
      {Variant("2mb"), 2097152.0},
      {Variant(0xFFFFFFFFFFFFFFFFul), 18446744073709551616.0},
      {Variant(-5), -5.0},
      {Variant(0xFFFFFFFFu), 4294967295.0},
      {Variant(true), 1.0},
      {Variant::Date(86400000.0), 86400000.0},
  };
  for (const auto& c : cases) EXPECT_EQ(c.value.ToDouble(), c.expected) << Text(c.value);
}

TEST(VariantTest, ToStringGivesTheFixedForms) {
  struct Case {
    Variant value;
    const char* expected;
  } cases[] = {
      {Variant::Date(0), ""},
      {Variant(true), "true"},
      {Variant(false), "false"},
      {Variant(1234567L), "1234567"},  // 64-bit values never take the local grouping
      {Variant(0xFFFFFFFFFFFFFFFFul), "18446744073709551615"},
      {Variant(u"text"), "text"},
      {Variant("Name"), "Name"},
      {Variant::Binary("Man", 3), "TWFu"},
      {Variant::Binary("Ma", 2), "TWE="},
      {Variant::Binary("M", 1), "TQ=="},
      {Variant::Binary("", 0), ""},
      {Variant(), ""},
  };
  for (const auto& c : cases) EXPECT_EQ(Text(c.value), c.expected);
}

// Each case: what is done, the code and the text of the failure.
TEST(VariantTest, FailuresCarryTheirCodesAndTexts) {
  setenv("LANGUAGE", "en", 1);  // the texts are the English catalogue's
  const Common::Error cause(VR_SITE, 0x3C0001, u"Broken.");
  const Variant error(cause);
  const Variant empty;
  std::atomic<int> destroyed{0};
  auto object = AutoRef<testing::IAlpha>::Adopt(new testing::Triple(&destroyed));
  const Variant iface(object);
  struct Case {
    std::function<void()> action;
    std::uint32_t code;
    const char* text;
  } cases[] = {
      {[] { Variant(u"abc").ToDouble(); }, 0xF0001, "Failed to convert from TString('abc') to TDouble."},
      {[] { Variant(u"").ToDouble(); }, 0xF0001, "Failed to convert from TString('') to TDouble."},
      {[] { Variant(u"12 apples").ToDouble(); }, 0xF0001,
       "Failed to convert from TString('12 apples') to TDouble."},
      {[&] { String s; error.ToString(s); }, 0xF0001, "Failed to convert from TError('Broken.') to TString."},
      {[&] { empty.ToDouble(); }, 0xF0001, "Failed to convert from TEmpty('<void>') to TDouble."},
      {[&] { iface.ToDouble(); }, 0xF0001,
       "Failed to convert from TInterface('<unknown interface>') to TDouble."},
      {[] { Variant(5).GetBool(); }, 0xF0002, "Failed to get value of type 'TBool' from value TLong('5')."},
      {[] { Variant(u"x").GetDouble(); }, 0xF0002,
       "Failed to get value of type 'TDouble' from value TString('x')."},
      {[] { Variant(5).GetInterface<testing::IAlpha>(); }, 0xF0002,
       "Failed to get value of type 'TInterface' from value TLong('5')."},
  };
  for (const auto& c : cases) {
    try {
      c.action();
      ADD_FAILURE() << c.text;
    } catch (const Variant::Error& e) {
      EXPECT_EQ(e.Code(), c.code);
      EXPECT_EQ(Utf8(e.GetText()), c.text);
    }
  }
  EXPECT_FALSE(empty.GetInterface<testing::IAlpha>());
  EXPECT_EQ(error.GetError(), cause);
}

TEST(VariantTest, CopiesShareCountedContentAndTheLastReleases) {
  std::atomic<int> destroyed{0};
  auto* object = new testing::Triple(&destroyed);
  {
    Variant a(AutoRef<testing::IAlpha>::Adopt(object));
    Variant b = a;
    Variant c;
    c = std::move(a);
    EXPECT_EQ(a.GetType(), Variant::TEmpty);
    EXPECT_EQ(b.GetInterface<testing::IGamma>()->Gamma(), 3);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(VariantTest, ThePoolKeepsTenStringsAndDestroysTheEleventh) {
  auto pool = Variant::Allocator::Instance();
  {
    std::vector<Variant> many;
    for (int i = 0; i < 12; ++i) many.emplace_back(u"pooled");
  }
  EXPECT_EQ(pool->FreeStrings(), Variant::Allocator::kMostFree);
  String* reused = pool->GetString(String(u"again"));
  EXPECT_EQ(Utf8(*reused), "again");
  EXPECT_EQ(pool->FreeStrings(), Variant::Allocator::kMostFree - 1);
  pool->ReturnString(reused);
}

TEST(StringEnumTest, DeclarationsCountLikeAnEnumAndUnknownValuesFail) {
  setenv("LANGUAGE", "en", 1);
  std::int32_t running = 0;
  const StringEnum::Entry entries[] = {{"A", running},      {"B = 7", running}, {"C", running},
                                       {"D = 95", running}, {"E\t= 20", running}};
  const StringEnum names(entries, 5, "Letters");
  const int expected[] = {0, 7, 8, 9, 20};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(entries[i].Value, expected[i]) << i;
  std::string text;
  names.ToString(text, 7);
  EXPECT_EQ(text, "B");
  EXPECT_EQ(entries[4].Text, "E");
  try {
    names.ToString(text, 42);
    ADD_FAILURE();
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), 0x10073u);
    EXPECT_STREQ(e.GetNarrowString("ErrorValue"), "42");
    EXPECT_STREQ(e.GetNarrowString("EnumTypeName"), "Letters");
    EXPECT_EQ(Utf8(e.GetText()), "Failed to convert value '42' of enumerator 'Letters' to a string value.");
    EXPECT_STREQ(e.Site().Function, "Processor::StringEnum::ToString");
  }
}

// The version digit in its place shows the fields are not scrambled.
TEST(GuidTextTest, FiveGroupsOfUpperCaseHexDigits) {
  String a, b;
  GenerateGuid(a);
  GenerateGuid(b);
  EXPECT_TRUE(std::regex_match(Utf8(a), std::regex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[0-9A-F]{4}-[0-9A-F]{12}")))
      << Utf8(a);
  EXPECT_NE(a, b);
}

}  // namespace
}  // namespace Processor
