#include <gtest/gtest.h>

#include "xml/tag.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Parse;

std::unique_ptr<Tag> MakeTag(std::string name, std::u16string text = u"") {
  auto tag = std::make_unique<Tag>(std::move(name));
  tag->Text[0] = std::move(text);
  return tag;
}

TEST(TagTest, FindChildTakesTheFirstMatchAndNeedsTheAttribute) {
  auto root = Parse(
      "<c><location>x</location><location id=\"1\">one</location>"
      "<location id=\"2\">two</location><location id=\"1\">again</location></c>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->FindChild("location")->GetText(), u"x");
  EXPECT_EQ(root->FindChild("Location"), nullptr);  // names match exactly
  EXPECT_EQ(root->FindChild("absent"), nullptr);

  EXPECT_EQ(root->FindChild("location", "id", u"1")->GetText(), u"one");
  EXPECT_EQ(root->FindChild("location", "id", u"2")->GetText(), u"two");
  EXPECT_EQ(root->FindChild("location", "id", u"3"), nullptr);
  // The first child has no id at all: it matches no value, not even "".
  EXPECT_EQ(root->FindChild("location", "id", u""), nullptr);
  EXPECT_EQ(root->FindChild("other", "id", u"1"), nullptr);
}

TEST(TagTest, AttributesAreReplacedAndFallBackToTheDefault) {
  Tag tag("a");
  EXPECT_EQ(tag.GetAttribute("type", u"none"), u"none");
  tag.SetAttribute("type", u"string");
  tag.SetAttribute("id", u"0");
  tag.SetAttribute("type", u"integer");
  EXPECT_EQ(tag.GetAttribute("type", u"none"), u"integer");
  EXPECT_EQ(tag.GetAttribute("id", u"none"), u"0");
  ASSERT_EQ(tag.Attributes.size(), 2u);
  EXPECT_EQ(tag.Attributes.begin()->first, "id");  // sorted by name
}

TEST(TagTest, InsertChildPlacesTheChildBehindTheTextBeforeThePosition) {
  Tag root("r");
  ASSERT_EQ(root.Text, std::vector<std::u16string>{u""});  // a new tag has one empty entry
  EXPECT_EQ(root.Parent, nullptr);
  root.Text[0] = u"a";
  Tag* x = root.InsertChild(root.Text.size(), MakeTag("x"));  // appends
  root.Text[1] = u"b";
  ASSERT_EQ(root.Children.size(), 1u);
  EXPECT_EQ(x, root.Children[0].get());
  EXPECT_EQ(x->Parent, &root);

  Tag* y = root.InsertChild(1, MakeTag("y"));  // between "a" and x
  Tag* z = root.InsertChild(root.Text.size(), MakeTag("z"));
  ASSERT_EQ(root.Children.size(), 3u);
  EXPECT_EQ(root.Children[0].get(), y);
  EXPECT_EQ(root.Children[1].get(), x);
  EXPECT_EQ(root.Children[2].get(), z);
  EXPECT_EQ(root.Text, (std::vector<std::u16string>{u"a", u"", u"b", u""}));
  EXPECT_EQ(y->Parent, &root);
  EXPECT_EQ(z->Parent, &root);

  // Written out, the order shows where each text went.
  EXPECT_EQ(testing::WriteElement(root), "<r>a<y/><x/>b<z/></r>");
}

TEST(TagTest, RemoveChildJoinsTheTextsAroundIt) {
  struct Case {
    std::vector<std::u16string> text;  // three entries around two children
    std::size_t removed;
    std::vector<std::u16string> expected;
  };
  const Case cases[] = {
      // Spaces on both sides: the left one goes.
      {{u"a ", u" b", u""}, 0, {u"a b", u""}},
      // A space on the left only: nothing goes.
      {{u"a ", u"b", u""}, 0, {u"a b", u""}},
      {{u"a", u" b", u""}, 0, {u"a b", u""}},
      // The right text is the last and empty: the left space goes.
      {{u"x", u"a ", u""}, 1, {u"x", u"a"}},
      // Empty on the right but not last: the space stays.
      {{u"a ", u"", u"z"}, 0, {u"a ", u"z"}},
      // The first entry empty: the right text's leading space goes.
      {{u"", u" b", u""}, 0, {u"b", u""}},
      {{u"", u" ", u""}, 0, {u"", u""}},
      // Not the first entry: a leading space on the right stays.
      {{u"x", u"", u" c"}, 1, {u"x", u" c"}},
  };
  for (const Case& c : cases) {
    Tag root("r");
    root.InsertChild(1, MakeTag("p"));
    root.InsertChild(2, MakeTag("q"));
    root.Text = c.text;
    const Tag* target = root.Children[c.removed].get();
    const Tag* other = root.Children[1 - c.removed].get();
    std::unique_ptr<Tag> removed = root.RemoveChild(target);
    ASSERT_EQ(removed.get(), target);
    EXPECT_EQ(removed->Parent, nullptr);
    ASSERT_EQ(root.Children.size(), 1u);
    EXPECT_EQ(root.Children[0].get(), other);
    EXPECT_EQ(root.Text, c.expected) << "removing child " << c.removed;
  }
}

TEST(TagTest, RemoveChildHandsBackTheWholeSubtreeAndRefusesStrangers) {
  auto root = Parse("<r>word <b><c>deep</c></b> word</r>");
  ASSERT_TRUE(root);
  Tag stranger("b");
  EXPECT_EQ(root->RemoveChild(&stranger), nullptr);
  EXPECT_EQ(root->RemoveChild(nullptr), nullptr);
  EXPECT_EQ(root->Children.size(), 1u);

  std::unique_ptr<Tag> b = root->RemoveChild(root->FindChild("b"));
  ASSERT_TRUE(b);
  ASSERT_EQ(b->Children.size(), 1u);
  EXPECT_EQ(b->Children[0]->GetText(), u"deep");
  EXPECT_EQ(b->Children[0]->Parent, b.get());
  // The gap the child leaves reads as one space, not two.
  EXPECT_EQ(root->Text, std::vector<std::u16string>{u"word word"});
  EXPECT_TRUE(root->Children.empty());
}

}  // namespace
}  // namespace Xml
