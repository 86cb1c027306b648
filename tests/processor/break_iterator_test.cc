// Break iterators as the message format walks them.
#include <vector>

#include <gtest/gtest.h>

#include "processor/break_iterator.h"

namespace Processor {
namespace {

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
