#include <gtest/gtest.h>

#include "xml/tag.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Dump;

TEST(TagTest, FindChildAndAttributes) {
  const auto root = testing::Parse(
      "<c><location>x</location><location id=\"1\">one</location>"
      "<location id=\"2\">two</location><location id=\"1\">again</location></c>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->FindChild("location")->GetText(), u"x");
  EXPECT_EQ(root->FindChild("Location"), nullptr);  // names match exactly
  EXPECT_EQ(root->FindChild("location", "id", u"1")->GetText(), u"one");
  EXPECT_EQ(root->FindChild("location", "id", u"2")->GetText(), u"two");
  EXPECT_EQ(root->FindChild("location", "id", u"3"), nullptr);
  // The first child has no id at all: it matches no value, not even "".
  EXPECT_EQ(root->FindChild("location", "id", u""), nullptr);
  EXPECT_EQ(root->FindChild("other", "id", u"1"), nullptr);

  // Attributes are replaced and fall back to the default.
  Tag tag("a");
  EXPECT_EQ(tag.GetAttribute("type", u"none"), u"none");
  tag.SetAttribute("type", u"string");
  tag.SetAttribute("type", u"integer");
  EXPECT_EQ(tag.GetAttribute("type", u"none"), u"integer");
}

TEST(TagTest, InsertChildPlacesTheChildBehindTheTextBeforeThePosition) {
  Tag root("r");
  root.Text[0] = u"a";
  Tag* x = root.InsertChild(1, std::make_unique<Tag>("x"));  // appends
  root.Text[1] = u"b";
  Tag* y = root.InsertChild(1, std::make_unique<Tag>("y"));
  root.InsertChild(root.Text.size(), std::make_unique<Tag>("z"));
  EXPECT_TRUE(y == root.Children[0].get() && x == root.Children[1].get());
  EXPECT_EQ(Dump(root), "r[ay[]x[]bz[]]");
}

TEST(TagTest, RemoveChildJoinsTheTextsAroundIt) {
  const struct {
    std::vector<std::u16string> text;  // three entries around children p and q
    std::size_t removed;
    const char* left;
  } cases[] = {
      // Spaces on both sides: the left one goes; on one side only: nothing goes.
      {{u"a ", u" b", u""}, 0, "r[a bq[]]"},
      {{u"a ", u"b", u""}, 0, "r[a bq[]]"},
      {{u"a", u" b", u""}, 0, "r[a bq[]]"},
      // The right text is the last and empty: the left space goes; not last: it stays.
      {{u"x", u"a ", u""}, 1, "r[xp[]a]"},
      {{u"a ", u"", u"z"}, 0, "r[a q[]z]"},
      // The first entry empty: the right text's leading space goes, elsewhere it stays.
      {{u"", u" b", u""}, 0, "r[bq[]]"},
      {{u"", u" ", u""}, 0, "r[q[]]"},
      {{u"x", u"", u" c"}, 1, "r[xp[] c]"},
  };
  for (const auto& c : cases) {
    Tag root("r");
    root.InsertChild(1, std::make_unique<Tag>("p"));
    root.InsertChild(2, std::make_unique<Tag>("q"));
    root.Text = c.text;
    const std::unique_ptr<Tag> removed = root.RemoveChild(root.Children[c.removed].get());
    EXPECT_TRUE(removed && !removed->Parent && removed->Name == (c.removed ? "q" : "p"));
    EXPECT_EQ(Dump(root), c.left);
  }
  Tag root("r"), stranger("b");
  root.InsertChild(1, std::make_unique<Tag>("p"));
  EXPECT_EQ(root.RemoveChild(&stranger), nullptr);
  EXPECT_EQ(root.RemoveChild(nullptr), nullptr);
  EXPECT_EQ(Dump(root), "r[p[]]");
}

}  // namespace
}  // namespace Xml
