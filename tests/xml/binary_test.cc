#include <gtest/gtest.h>

#include <random>

#include "common/resources/resource_module.h"
#include "xml/binary_writer.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using namespace std::string_literals;
using testing::Dump;
using testing::ParseBytes;
using testing::Tree;

std::string Binary(const Tag& root) { return testing::Write(&root, kBinary); }

TEST(BinaryTest, LayoutOneBytes) {
  // A repeated name is its id alone; a tag without children is one inline
  // string behind a text count of 1.
  const auto root = testing::Parse("<a x='1'><b/>t<a/></a>");
  ASSERT_TRUE(root);
  const std::string expected =
      "BXML\1\1"
      "\0\1a" "\1" "\1\1x" "\1" "1" "\3" "\0"
      "\2\1b" "\0" "\1" "\0"
      "\1t"
      "\0" "\0" "\1" "\0"
      "\0"s;
  EXPECT_EQ(Binary(*root), expected);
  EXPECT_EQ(Tree(expected), "a x=\"1\"[b[]ta[]]");
}

TEST(BinaryTest, LayoutTwoReads) {
  // Ids from 1, lists ended by id 0, lengths doubled; a narrow text (odd
  // item) leaves its entry empty.
  const std::string document =
      "BXML\2\7"
      "\1\1r" "\2\1k" "\4" "vv" "\0" "\4" "ab"
      "\3\1c" "\2" "\4" "XY" "\0" "\3" "n" "\0"
      "\7" "nar"
      "\1" "\0" "\0" "\0"
      "\2" "z" "\0"s;
  EXPECT_EQ(Tree(document), "r k=\"vv\"[abc k=\"XY\"[]r[]z]");
}

// `levels` tags, each the only child of the one before.
std::string Nested(int levels) {
  std::string s = "BXML\1\1" "\0\1a\0\2\0"s;
  for (int i = 2; i < levels; ++i) s += "\0\0\2\0"s;
  s += "\0\0\1\0"s;
  return s + std::string(static_cast<std::size_t>(levels - 1), '\0');
}

TEST(BinaryTest, BadDocumentsFailWithTheirError) {
  const struct {
    const char* Name;
    std::string Bytes;
    std::uint32_t Code;  // 0: false without an error on the file
  } cases[] = {
      {"layout 3", "BXML\3\1\0\1a\0\1\0"s, 0},
      {"no layout", "BXML", FileError::EndOfFile},
      {"cut in a text", "BXML\1\1\0\1a\0\1\5ab"s, FileError::EndOfFile},
      {"cut after the root's name", "BXML\1\1\0\1a"s, FileError::EndOfFile},
      {"odd attribute length", "BXML\2\1\1\1a\2\1b\3xy\0\0\0"s, FileError::Corrupted},
      {"id never defined", "BXML\1\1\5\1a\0\1\0"s, FileError::Corrupted},
      {"id 0 in layout 2 names no tag", "BXML\2\1\0"s, 0},
      {"text count 0", "BXML\1\1\0\1a\0\0\0"s, FileError::Corrupted},
      {"huge text count", "BXML\1\1\0\1a\0\xFF\xFF\xFF\xFF\x0F\0"s, FileError::EndOfFile},
      {"huge length", "BXML\1\1\0\1a\0\1\xFF\xFF\xFF\xFF\x0F" "x"s, FileError::EndOfFile},
      {"endless VarInt", "BXML\1\1\0\1a\0"s + std::string(100000, '\x80'), FileError::EndOfFile},
      {"broken UTF-8", "BXML\1\1\0\1a\0\1\2\xC3("s, FileError::Corrupted},
      {"overlong UTF-8", "BXML\1\1\0\1a\0\1\2\xC0\xAF"s, FileError::Corrupted},
      {"1001 levels", Nested(1001), FileError::Corrupted},
  };
  for (const auto& c : cases) {
    const auto read = ParseBytes(c.Bytes);
    EXPECT_FALSE(read.Root) << c.Name;
    EXPECT_EQ(read.Code, c.Code) << c.Name;
  }
  // As deep as the text reader goes is fine.
  const auto deepest = ParseBytes(Nested(1000));
  EXPECT_TRUE(deepest.Root);
  EXPECT_EQ(deepest.Code, 0u);
}

// A random tree: names from a few (so that the dictionary repeats),
// attributes and texts of any units, lone surrogates and controls included.
std::unique_ptr<Tag> RandomTree(std::mt19937& random, int depth, bool anyUnits) {
  const char* const names[] = {"a", "Disk", "x.y", "_n-1", "settings"};
  auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  auto text = [&] {
    std::u16string s;
    for (int n = pick(6); n > 0; --n) {
      const char16_t plain[] = {u'a', u' ', u'<', u'&', u'"', u'\n', 0xE9, 0x20AC, u']', u'>'};
      const int kind = pick(anyUnits ? 4 : 3);
      if (kind == 0) s += u"word";
      else if (kind == 1) s += plain[pick(10)];
      else if (kind == 2) s += u"\xD83D\xDE00";
      else s += static_cast<char16_t>(random() & 0xFFFF);
    }
    return s;
  };
  auto tag = std::make_unique<Tag>(names[pick(5)]);
  for (int n = pick(4); n > 0; --n) tag->SetAttribute(names[pick(5)], text());
  tag->Text[0] = text();
  for (int n = depth > 0 ? pick(4) : 0; n > 0; --n) {
    tag->InsertChild(tag->Text.size(), RandomTree(random, depth - 1, anyUnits));
    tag->Text.back() = text();
  }
  return tag;
}

TEST(BinaryTest, GeneratedTreesReadBackTheSame) {
  std::mt19937 random(20261123);
  for (int i = 0; i < 300; ++i) {
    // Any tree survives the binary form as it is.
    const auto tree = RandomTree(random, 4, true);
    EXPECT_EQ(Tree(Binary(*tree)), Dump(*tree)) << i;
    // A text document and its binary form read back to the same tree.
    const auto fromText = testing::Parse(testing::Write(RandomTree(random, 4, false).get(), 0));
    ASSERT_TRUE(fromText) << i;
    EXPECT_EQ(Tree(Binary(*fromText)), Dump(*fromText)) << i;
  }
  // A document larger than the block the writer sends at once: the block
  // goes out before the child.
  Tag large("a");
  large.Text[0] = std::u16string(70000, u'x');
  large.InsertChild(1, std::make_unique<Tag>("b"));
  EXPECT_EQ(Tree(Binary(large)), Dump(large));
}

TEST(BinaryTest, TemplateRoundTripsByteForByte) {
  // The template as a machine's .vmc is saved from it; that file, through
  // the binary form and back to text, is the same file.
  auto source = Common::OpenResourceFile(u"default.vmc");
  ASSERT_TRUE(source);
  std::string original(source->Size(), '\0');
  original.resize(source->Read(original.data(), original.size()));
  const auto fromTemplate = testing::Parse(original);
  ASSERT_TRUE(fromTemplate);
  const std::string vmc = testing::Write(fromTemplate.get(), kByteOrderMark);
  const auto binary = ParseBytes(Binary(*testing::Parse(vmc)));
  ASSERT_TRUE(binary.Root);
  EXPECT_EQ(testing::Write(binary.Root.get(), kByteOrderMark), vmc);
}

}  // namespace
}  // namespace Xml
