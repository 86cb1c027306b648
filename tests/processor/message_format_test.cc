// The message format: the pattern language, its subformats, and every
// catalogue text in both languages; the break iterators it walks texts with.
#include <cstdlib>
#include <regex>
#include <string>
#include <tuple>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "common/message_table.h"
#include "common/site.h"
#include "processor/break_iterator.h"
#include "processor/format/message_format.h"
#include "vellumrig/error_text.h"

namespace Processor {
namespace {

std::string Format(const char16_t* pattern, std::vector<Variant> args) {
  String out;
  MessageFormatImpl().Format(out, String(pattern), args.data(), static_cast<int>(args.size()));
  std::string narrow;
  return out.toUTF8String(narrow);
}

TEST(MessageFormatTest, PatternsAndSubformats) {
  struct Case {
    const char16_t* Pattern;
    std::vector<Variant> Args;
    const char* Expected;
  };
  const Case cases[] = {
      {u"{0} of {1}", {Variant(7)}, "7 of {1}"},
      {u"no braces\uF800 here\uF800, } too", {}, "no braces here, } too"},
      {u"\uF800{0}\uF800 is {0}", {Variant(u"x")}, "{0} is x"},
      {u"{-1} {9}", {Variant(1)}, "{-1} {9}"},
      {u"{0, choice, 0#none|0<{0} files}", {Variant(3)}, "3 files"},
      {u"{0, choice, 0#none|0<{0} files}", {Variant(0)}, "none"},
      {u"{0, choice, 1\u2264a}", {Variant(2)}, ""},
      {u"{0, choice, 2#two chars|3#three}", {Variant(u"ab")}, "two chars"},
      {u"{0, concord, 0#file|1#files}", {Variant(1)}, "file"},
      {u"{0, concord, 0#file|1#files}", {Variant(2)}, "files"},
      {u"{0, ellipsis, 3}", {Variant(u"a long text")}, "a long text"},
      {u"{0, ellipsis, 12}", {Variant(u"shorten this long text")}, "shorten ..."},
      {u"{0, ellipsis, 8}", {Variant(u"abcdefghijkl")}, "abcde..."},  // no word fits: cut inside
      {u"{0,path_ellipsis,20}", {Variant(u"C:\\Users\\me\\Documents\\vms\\web.vhdx")}, "C:\\...\\vms\\web.vhdx"},
      {u"{0,number,hex}/{0,number,simple}", {Variant(255u)}, "FF/255"},
      {u"{0,number,integer,000}", {Variant(7)}, "007"},
      {u"{0,time_span}", {Variant(3661000)}, "01:01:01"},
      {u"{0,time_span}", {Variant(u"x")}, "<invalid time span>"},
      {u"{0,size}", {Variant(1536ull << 20)}, "1.5 GB"},
      {u"{0} {1} {2} {3}", {Variant(), Variant::Binary("ab", 2), Variant(true), Variant("id")},
       "<void> <binary data> true id"},
      {u"{0,unknown}", {Variant(1)}, ""},
      {u"a{0,number,hex,x,y,z}b", {Variant(16)}, "a10b"},
  };
  for (const Case& c : cases) EXPECT_EQ(Format(c.Pattern, c.Args), c.Expected) << String(c.Pattern).length();
}

TEST(MessageFormatTest, ConcordCountsByTheLanguagesRule) {
  for (const auto& [value, simple, form] : std::vector<std::tuple<double, bool, int>>{
           {1, true, 0}, {2, true, 1}, {0, true, 1}, {21, false, 0}, {22, false, 1},
           {25, false, 2}, {11, false, 2}, {1.5, false, 1}, {-3, false, 1}, {112, false, 2}})
    EXPECT_EQ(ConcordIndex(value, simple), form) << value << " " << simple;
}

TEST(MessageFormatTest, ErrorsShowTheirPartsAndChains) {
  Common::Error outer(VR_SITE, 0x530013, u"outer");
  outer.AddReason(Common::Error(VR_SITE, 0x40011));
  EXPECT_EQ(Format(u"{0,error,code} {0,error,message}", {Variant(outer)}), "0x530013 outer");
  EXPECT_EQ(Format(u"{0,error,code}", {Variant(Common::Error())}), "0x0");
  EXPECT_EQ(Format(u"{0,error,field,$module}", {Variant(outer)}), "vellumrig_vsa64_35791");
  const std::string full = Format(u"{0}", {Variant(outer)});
  EXPECT_EQ(full, Common::ToUtf8(Common::FullText(outer)));
  EXPECT_NE(full.find("\nSpecified file does not exist.\n\n    Error code: 0x40011"), std::string::npos) << full;
}

// Every text of both catalogues fills its placeholders with typical
// arguments and leaves none behind.
TEST(MessageFormatTest, EveryCatalogueTextFormats) {
  const std::regex placeholder(R"(\{(\d+)\})");
  for (const char* language : {"en", "de"}) {
    setenv("LANGUAGE", language, 1);
    Common::PrepareMessageTable();
    const Common::MessageTableView table = Common::ActiveMessageTable();
    ASSERT_TRUE(table.Base);
    std::uint32_t count = 0;
    std::memcpy(&count, table.Base + 4, 4);
    int checked = 0;
    for (std::uint32_t entry = 0; entry < count && entry < Common::Msg::LanguageInfo; ++entry) {
      const std::string pattern = Common::ToUtf8(Common::MessageText(entry));
      std::vector<Variant> args;
      for (std::sregex_iterator it(pattern.begin(), pattern.end(), placeholder), end; it != end; ++it)
        args.resize(std::max<std::size_t>(args.size(), std::stoul((*it)[1]) + 1), Variant(u"arg"));
      if (args.empty()) continue;
      ++checked;
      const std::u16string wide = Common::MessageText(entry).data();
      const std::string text = Format(wide.c_str(), args);
      EXPECT_FALSE(std::regex_search(text, placeholder)) << language << " " << entry << ": " << text;
    }
    EXPECT_GT(checked, 50) << language;
  }
  setenv("LANGUAGE", "en", 1);
  Common::PrepareMessageTable();
}

std::vector<std::uint32_t> Breaks(BreakIterator& it, const char16_t* text) {
  it.SetText(Processor::String(text));
  std::vector<std::uint32_t> breaks;
  while (it.IsValid() && it.Next() && breaks.size() < 20) breaks.push_back(it.GetPosition());
  return breaks;
}

TEST(BreakIteratorTest, PathsBreakAtEachSeparatorThenAtTheEnd) {
  auto path = CreateBreakIterator(kPathBreaks);
  ASSERT_TRUE(path);
  EXPECT_EQ(Breaks(*path, u"a\\b/c"), (std::vector<std::uint32_t>{1, 3, 5}));
  EXPECT_FALSE(path->IsValid()) << "past the end";
  path->SetText(Processor::String(u""));
  EXPECT_FALSE(path->IsValid());
  EXPECT_EQ(CreateBreakIterator(7), nullptr);
}

TEST(BreakIteratorTest, WordsAndLinesComeFromIcu) {
  auto words = CreateBreakIterator(kWordBreaks);
  auto lines = CreateBreakIterator(kLineBreaks);
  ASSERT_TRUE(words && lines);
  EXPECT_EQ(Breaks(*words, u"two words"), (std::vector<std::uint32_t>{3, 4, 9}));
  EXPECT_EQ(Breaks(*lines, u"two words"), (std::vector<std::uint32_t>{4, 9}));
  EXPECT_FALSE(lines->IsValid());
  EXPECT_FALSE(lines->Next());
}

}  // namespace
}  // namespace Processor
