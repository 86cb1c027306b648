#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "processor/format/number_format_hex.h"
#include "processor/format/number_format_icu.h"
#include "processor/format/number_format_win.h"
#include "processor/format/size_format.h"
#include "processor/format/time_span_format.h"
#include "processor/variant.h"
#include "test_objects.h"

namespace Processor {
namespace {

using testing::Utf8;

TEST(NumberFormatHexTest, WritesBitPatternsPaddedToTheWidth) {
  struct Case {
    int base;
    Variant value;
    int width;
    const char* text;
  } cases[] = {
      {16, Variant(0xABu), 8, "000000AB"},
      {16, Variant(-1), 0, "FFFFFFFF"},
      {10, Variant(-1L), 0, "18446744073709551615"},
      {10, Variant(0u), 0, "0"},
      {16, Variant(0x1234567890ABCDEFul), 4, "1234567890ABCDEF"},
      {10, Variant(7u), 100, "00000000000000000000000000000007"},  // cut to 32 digits
      {16, Variant(1.5), 4, ""},                                     // no integer: no text
  };
  for (const auto& c : cases) {
    String out;
    NumberFormatHEX(c.base).Format(out, c.value, c.width);
    EXPECT_EQ(Utf8(out), c.text) << c.base << " " << c.width;
  }
}

TEST(NumberFormatHexTest, ParsesSignBasePrefixAndStopsAtTheFirstStranger) {
  struct Case {
    int base;
    const char16_t* text;
    double value;
    int position;
  } cases[] = {
      {10, u"0x1F", 31, 4},
      {10, u"1F", 1, 1},
      {16, u"1f", 31, 2},
      {10, u"-12 KB", -12, 3},
      {10, u"+-1", 0, 1},
      {10, u"007", 7, 3},
      {16, u"FFFFFFFFFFFFFFFF", 18446744073709551615.0, 16},
      {10, u"abc", 0, 0},
  };
  for (const auto& c : cases) {
    std::int32_t position = -1;
    EXPECT_EQ(NumberFormatHEX(c.base).Parse(String(c.text), position), c.value) << Utf8(String(c.text));
    EXPECT_EQ(position, c.position) << Utf8(String(c.text));
  }
}

TEST(TimeSpanFormatTest, HoursMinutesSecondsAndMilliseconds) {
  auto format = TimeSpanFormat::Create();
  struct Case {
    std::uint64_t ms;
    bool fraction;
    const char* text;
  } cases[] = {
      {3661000, false, "01:01:01"},
      {3661234, true, "01:01:01.234"},
      {360000000, false, "100:00:00"},
      {59999, true, "00:00:59.999"},
  };
  for (const auto& c : cases) {
    String out;
    format->Format(out, c.ms, c.fraction);
    EXPECT_EQ(Utf8(out), c.text);
  }
}

TEST(SizeFormatTest, ParsesUnitsInAnyCaseAndTheDefaultUnit) {
  auto format = SizeFormat::Create();
  struct Case {
    const char16_t* text;
    DiskSizeUnit defaultUnit;
    double value;
  } cases[] = {
      {u"10 KB", DSU_BYTE, 10240},        {u"10kb", DSU_BYTE, 10240},
      {u"3 mb", DSU_BYTE, 3145728},       {u"2 TB", DSU_BYTE, 2199023255552.0},
      {u"512 bytes", DSU_MB, 512},        {u"7", DSU_BYTE, 7},
      {u"7", DSU_GB, 7516192768.0},       {u"7", DSU__SIZE, 0},
      {u"0 KB", DSU_BYTE, 0},
  };
  for (const auto& c : cases) {
    std::int32_t position = 0;
    EXPECT_EQ(format->Parse(String(c.text), position, c.defaultUnit), c.value) << Utf8(String(c.text));
  }
}

// The local forms depend on the environment's locale, which is read once a
// process: each locale is checked in a child run of this program.
TEST(LocalFormsChild, DISABLED_Print) {
  auto show = [](const char* key, const String& text) {
    std::cout << "VALUE " << key << "=" << Utf8(text) << "\n";
  };
  NumberFormatWin win;
  String s;
  win.Format(s, Variant(1234567), 0), show("int", s), s.remove();
  win.Format(s, Variant(-1234.5), 0), show("double", s), s.remove();
  win.Format(s, Variant(1234567.5), 0), show("double2", s), s.remove();
  NumberFormatICU icu(String(u"#,##0.00"));
  icu.Format(s, Variant(1234.5), 0), show("icu", s), s.remove();
  auto size = SizeFormat::Create();
  size->Format(s, 1610612736.0), show("size", s), s.remove();
  size->Format(s, 512), show("bytes", s), s.remove();
  size->Format(s, 1048575), show("carry", s), s.remove();
  std::int32_t position = 0;
  std::cout << "VALUE parseComma=" << static_cast<long long>(size->Parse(String(u"1,5 gb"), position)) << "\n";
  std::cout << "VALUE parseDot=" << static_cast<long long>(size->Parse(String(u"1.5 gb"), position)) << "\n";
}

std::map<std::string, std::string> RunChild(const std::string& environment) {
  const std::string command = "env -u LC_ALL -u LC_NUMERIC -u LANG -u LANGUAGE " + environment +
                              " /proc/" + std::to_string(getpid()) +
                              "/exe --gtest_also_run_disabled_tests "
                              "--gtest_filter=LocalFormsChild.DISABLED_Print";
  std::map<std::string, std::string> values;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return values;
  char line[512];
  while (std::fgets(line, sizeof line, pipe)) {
    std::string text(line);
    if (text.rfind("VALUE ", 0) != 0) continue;
    while (!text.empty() && text.back() == '\n') text.pop_back();
    const auto eq = text.find('=');
    values[text.substr(6, eq - 6)] = text.substr(eq + 1);
  }
  pclose(pipe);
  return values;
}

TEST(LocalFormsTest, NumbersAndSizesFollowTheEnvironmentsLocale) {
  struct Case {
    const char* environment;
    std::map<std::string, std::string> values;
  } cases[] = {
      {"LANG=de_DE.UTF-8",
       {{"int", "1.234.567"}, {"double", "-1.234,5"}, {"double2", "1.234.567,5"},
        {"icu", "1.234,50"}, {"size", "1,5 GB"}, {"bytes", "512 Bytes"}, {"carry", "1 MB"},
        {"parseComma", "1610612736"}}},
      {"LANG=en_US.UTF-8",
       {{"int", "1,234,567"}, {"double", "-1,234.5"}, {"icu", "1,234.50"}, {"size", "1.5 GB"},
        {"bytes", "512 bytes"}, {"parseDot", "1610612736"}}},
      // Numbers follow LC_NUMERIC before LANG, and the unit texts LANG.
      {"LANG=C LC_NUMERIC=de_DE.UTF-8@euro", {{"int", "1.234.567"}, {"bytes", "512 bytes"}}},
      {"LANG=C", {{"int", "1234567"}, {"double2", "1234567.5"}}},
      {"LC_ALL=hi_IN.UTF-8 LANGUAGE=en", {{"int", "12,34,567"}}},
  };
  for (const auto& c : cases) {
    const auto got = RunChild(c.environment);
    for (const auto& [key, text] : c.values) {
      auto it = got.find(key);
      ASSERT_NE(it, got.end()) << c.environment << " " << key;
      EXPECT_EQ(it->second, text) << c.environment << " " << key;
    }
  }
}

}  // namespace
}  // namespace Processor
