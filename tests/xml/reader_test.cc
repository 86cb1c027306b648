#include <gtest/gtest.h>

#include <string>

#include "xml/reader.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Parse;
using testing::ParseBytes;
using Texts = std::vector<std::u16string>;

// The root's text entries, or a marker when the parse fails.
Texts RootText(std::string_view document) {
  auto root = Parse(document);
  return root ? root->Text : Texts{u"<parse failed>"};
}

TEST(ReaderTest, WhitespaceInContentFoldsToSingleSpacesBetweenThings) {
  struct Case {
    const char* document;
    Texts text;
  };
  const Case cases[] = {
      {"<a>one  two</a>", {u"one two"}},
      {"<a>one \t\r\n two</a>", {u"one two"}},
      // Leading whitespace of an element and trailing whitespace are lost.
      {"<a> word </a>", {u"word"}},
      {"<a>\r\n\t\t</a>", {u""}},
      // Around a child the spaces stay, one on each side.
      {"<a>word <b/> word</a>", {u"word ", u" word"}},
      {"<a>word<b/>word</a>", {u"word", u"word"}},
      // The entry after a child exists even when empty.
      {"<a><b/></a>", {u"", u""}},
      {"<a>\r\n\t<b>x</b>\r\n\t<c/>\r\n</a>", {u"", u" ", u""}},
      // Comments and instructions vanish without joining their neighbours.
      {"<a>x<!-- note -->y</a>", {u"xy"}},
      {"<a>x <!-- note --> y</a>", {u"x y"}},
      {"<a>x<?pi data?> y</a>", {u"x y"}},
      // A CDATA section keeps its spaces; the whitespace around it folds.
      {"<a>x  <![CDATA[ y  z ]]>  w</a>", {u"x  y  z  w"}},
      {"<a><![CDATA[]]></a>", {u""}},
      // After an entity, whitespace is pending again.
      {"<a>&lt; b</a>", {u"< b"}},
      {"<a>x &amp;</a>", {u"x &"}},
      {"<a>&#32;&#32;x</a>", {u"  x"}},
  };
  for (const Case& c : cases) EXPECT_EQ(RootText(c.document), c.text) << c.document;
}

TEST(ReaderTest, PreserveKeepsWhitespaceForTheTagAndItsDescendants) {
  auto root = Parse(
      "<a>x  y<p xml:space=\"preserve\">  two  spaces <q>\t</q> </p>"
      "<n xml:space=\"Preserve\"> one  two </n><m> one  two </m></a>");
  ASSERT_TRUE(root);
  const Tag* p = root->FindChild("p");
  ASSERT_TRUE(p);
  EXPECT_EQ(p->Text, (Texts{u"  two  spaces ", u" "}));
  EXPECT_EQ(p->FindChild("q")->GetText(), u"\t");
  // The value must be exactly "preserve".
  EXPECT_EQ(root->FindChild("n")->GetText(), u"one two");
  // Siblings and the parent normalise as before.
  EXPECT_EQ(root->FindChild("m")->GetText(), u"one two");
  EXPECT_EQ(root->Text[0], u"x y");

  // Preserved whitespace keeps its carriage returns.
  EXPECT_EQ(RootText("<a xml:space=\"preserve\">\r\n x</a>"), Texts{u"\r\n x"});
  // Whitespace right behind a preserving child is the parent's again,
  // and so is the line break behind a preserving root.
  root = Parse("<a><b xml:space=\"preserve\"> x </b>  y  z<c xml:space='preserve'/>  w</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->Text, (Texts{u"", u" y z", u" w"}));
  EXPECT_EQ(root->FindChild("b")->GetText(), u" x ");
  EXPECT_TRUE(Parse("<a xml:space='preserve'> x </a>\r\n"));
  EXPECT_TRUE(Parse("<a xml:space='preserve'/>\r\n"));
}

TEST(ReaderTest, AttributeValuesAreNormalisedWhateverPreserveSays) {
  auto root = Parse(
      "<a xml:space='preserve' v=\"  one \t\r\n two  \" w = 'it\"s' e=\"\" "
      "x=\"&lt;&#9;&quot;&apos;\"><b c=' x '/></a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetAttribute("v", u"?"), u"one two");
  EXPECT_EQ(root->GetAttribute("w", u"?"), u"it\"s");
  EXPECT_EQ(root->GetAttribute("e", u"?"), u"");
  EXPECT_EQ(root->GetAttribute("x", u"?"), u"<\t\"'");
  EXPECT_EQ(root->GetAttribute("xml:space", u"?"), u"preserve");
  EXPECT_EQ(root->FindChild("b")->GetAttribute("c", u"?"), u"x");
}

TEST(ReaderTest, MalformedTagsFail) {
  const char* const refused[] = {
      "<a x=\"1\" x=\"2\"/>",  // duplicate attribute
      "<a><b x='1' y='2' x='3'></b></a>",
      "<a></b>",     // closing name must match
      "<a></A>",     // byte for byte
      "<a></a >x",   // text after the root
      "<a/><b/>",    // two roots
      "text<a/>",    // text before the root
      "<![CDATA[x]]><a/>",
      "<a>",         // unclosed
      "<a><b></a>",
      "<a x></a>",   // attribute without value
      "<a x=1/>",    // unquoted value
      "<a x='1\"/>", // unterminated value
      "<a x='<'/>",  // "<" in a value
      "<a></ a>",    // no name after "</"
      "<a>< b/></a>",
      "<a><1/></a>",
      "<a><!x></a>",
      "<a/ >",
      "<a b='1'c/>",
      "",
      " \r\n\t ",     // only whitespace
      "<!-- only a comment -->",
      "<!DOCTYPE a [<!ENTITY e 'x'>]><a/>",  // internal subset
      "<!DOCTYPE><a/>",                       // needs whitespace after the keyword
      "<!doctype a><a/>",
  };
  for (const char* document : refused) EXPECT_FALSE(Parse(document)) << document;

  const char* const accepted[] = {
      "<?xml version=\"1.0\"?>\r\n<!DOCTYPE a SYSTEM \"a.dtd\">\r\n<!-- x -- y -->\r\n<a/>\r\n",
      "<a:b.c-d_e x:y='1'></a:b.c-d_e>",
      "<_a/>",
      "<a></a  \t>",
      "<a/><!-- after --><?pi?>  ",
  };
  for (const char* document : accepted) EXPECT_TRUE(Parse(document)) << document;
}

TEST(ReaderTest, EntitiesGiveTheirUnits) {
  struct Case {
    const char* document;
    std::u16string text;
  };
  const Case cases[] = {
      {"<a>&lt;&gt;&amp;&apos;&quot;</a>", u"<>&'\""},
      {"<a>&#65;&#0066;&#x43;&#x6a;&#x6A;</a>", u"ABCjj"},
      {"<a>&#9;&#10;&#0;</a>", std::u16string(u"\t\n\0", 3)},
      {"<a>&#x10000;</a>", u"\xD800\xDC00"},
      {"<a>&#x10FFFF;</a>", u"\xDBFF\xDFFF"},
      {"<a>&#65536;</a>", u"\xD800\xDC00"},
      {"<a>&#xFFFF;</a>", u"\xFFFF"},
      {"<a>&#xD800;</a>", u"\xD800"},
      {"<a>&#x0000000000041;</a>", u"A"},
  };
  for (const Case& c : cases) EXPECT_EQ(RootText(c.document), Texts{c.text}) << c.document;

  const char* const refused[] = {
      "<a>&#x110000;</a>", "<a>&#1114112;</a>", "<a>&#xFFFFFFFFFF;</a>",
      "<a>&#X41;</a>",  // capital X
      "<a>&#x;</a>",    "<a>&#;</a>",         "<a>&#65</a>",
      "<a>&#x4G;</a>",  "<a>&nbsp;</a>",      "<a>&LT;</a>",
      "<a>&lt</a>",     "<a>& </a>",          "<a b='&bad;'/>",
  };
  for (const char* document : refused) EXPECT_FALSE(Parse(document)) << document;
}

TEST(ReaderTest, Utf8IsDecodedStrictly) {
  EXPECT_EQ(RootText("<a>\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F</a>"),
            Texts{u"\u00E9\u20AC\xD83D\xDE00\x7F"});
  EXPECT_EQ(RootText("<a>\xEF\xBF\xBD\xF4\x8F\xBF\xBF</a>"), Texts{u"\xFFFD\xDBFF\xDFFF"});
  auto root = Parse("<a v='\xE2\x82\xAC'><![CDATA[\xC3\xA9]]></a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetAttribute("v", u""), u"\u20AC");
  EXPECT_EQ(root->GetText(), u"\u00E9");

  const char* const invalid[] = {
      "\xC0\x80",          // overlong NUL
      "\xC1\xBF",          // overlong
      "\xE0\x80\x80",      // overlong
      "\xE0\x9F\xBF",      // overlong
      "\xF0\x8F\xBF\xBF",  // overlong
      "\xED\xA0\x80",      // surrogate
      "\xED\xBF\xBF",      // surrogate
      "\xF4\x90\x80\x80",  // past 0x10FFFF
      "\xF5\x80\x80\x80",
      "\xEF\xBF\xBE",      // U+FFFE
      "\xEF\xBF\xBF",      // U+FFFF
      "\x80",              // continuation alone
      "\xE2\x82",          // cut short
      "\xE2\x82x",
      "\xFF",
      "\x01",              // control bytes
      "\x1F",
  };
  for (const char* bytes : invalid) {
    EXPECT_FALSE(Parse(std::string("<a>") + bytes + "</a>")) << "text " << bytes;
    EXPECT_FALSE(Parse(std::string("<a v='") + bytes + "'/>")) << "value " << bytes;
    EXPECT_FALSE(Parse(std::string("<a><![CDATA[") + bytes + "]]></a>")) << "cdata " << bytes;
  }
  // A NUL byte is a control byte too, though not at the end of input.
  EXPECT_FALSE(Parse(std::string("<a>x\0y</a>", 10)));
  EXPECT_FALSE(Parse(std::string("<a/>\0", 5)));
}

TEST(ReaderTest, CDataKeepsItsContentButDropsCarriageReturns) {
  EXPECT_EQ(RootText("<a><![CDATA[<b>&amp;\r\n\tx]]]]]></a>"), Texts{u"<b>&amp;\n\tx]]]"});
  EXPECT_EQ(RootText("<a>x <![CDATA[y]]> z</a>"), Texts{u"x y z"});
  EXPECT_FALSE(Parse("<a><![CDATA[x</a>"));
  EXPECT_FALSE(Parse("<a><![CDATA[x\x02]]></a>"));
}

TEST(ReaderTest, CommentsInstructionsAndDoctypesRefuseControlBytes) {
  EXPECT_TRUE(Parse("<a><!--\tx\r\ny--></a>"));
  EXPECT_FALSE(Parse("<a><!-- \x01 --></a>"));
  EXPECT_FALSE(Parse("<?pi \x01?><a/>"));
  EXPECT_FALSE(Parse("<!DOCTYPE a \x01><a/>"));
  // A comment may hold "--" and "-" before its end.
  EXPECT_EQ(RootText("<a>x<!-- a -- b ---->y</a>"), Texts{u"xy"});
}

TEST(ReaderTest, AnErrorExactlyAtTheEndOfInputIsTheEnd) {
  // The scan stops where the input stops; behind the root that is success.
  EXPECT_TRUE(Parse("<a/>&"));
  EXPECT_TRUE(Parse("<a/><!-- unterminated"));
  EXPECT_TRUE(Parse("<a/><![CDATA["));
  // One byte earlier it is an error.
  EXPECT_FALSE(Parse("<a/>&x"));
  EXPECT_FALSE(Parse("<a/><!-- unterminated \x01"));
  EXPECT_FALSE(Parse("<a/><![CDATA[x"));
  EXPECT_FALSE(Parse("<a/><"));
}

TEST(ReaderTest, MarksAtTheStart) {
  auto root = Parse("\xEF\xBB\xBF<a>x</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetText(), u"x");
  EXPECT_FALSE(Parse("\xEF\xBB<a/>"));

  // The binary form is not read yet: refused at its very first byte.
  const auto binary = ParseBytes("BXML\x01\x00\x00\x00<a/>");
  EXPECT_FALSE(binary.Root);
  EXPECT_EQ(binary.Line, 1u);
  EXPECT_EQ(binary.Column, 1u);
  EXPECT_FALSE(Parse("BXM"));
}

TEST(ReaderTest, PositionsCountLinesAndByteColumnsWithTabStops) {
  struct Case {
    const char* document;
    std::uint32_t line, column;
  };
  const Case cases[] = {
      // An entity error is at the byte after the "&".
      {"<a>&x;</a>", 1, 5},
      {"<a>\t&x;</a>", 1, 10},
      {"<a>1234567\t&x;</a>", 1, 18},
      {"<a>12345\t&x;</a>", 1, 18},  // at 8 already: on to 16
      {"<a>1234567890123\t&x;</a>", 1, 26},
      // Columns are bytes: "é" counts two.
      {"<a>\xC3\xA9&x;</a>", 1, 7},
      // A failed token is reported at its start.
      {"<a>\n</b>", 2, 1},
      {"<a>\n  <b>\n\t<c x=\"1\" x=\"2\"/></b></a>", 3, 18},
      {"<a>ok \xC0\x80</a>", 1, 7},
      {"\r\n<a>\r\n\x01", 3, 1},
      // Success stops behind everything.
      {"<a/>\r\n", 2, 1},
      {"<a/>", 1, 5},
  };
  for (const Case& c : cases) {
    const auto parsed = ParseBytes(c.document);
    EXPECT_EQ(parsed.Line, c.line) << c.document;
    EXPECT_EQ(parsed.Column, c.column) << c.document;
  }
}

TEST(ReaderTest, NestingDeeperThanTheLimitFails) {
  auto nested = [](std::size_t depth) {
    std::string document;
    for (std::size_t i = 0; i < depth; ++i) document += "<a>";
    for (std::size_t i = 0; i < depth; ++i) document += "</a>";
    return document;
  };
  auto root = Parse(nested(kMaxDepth));
  ASSERT_TRUE(root);
  std::size_t depth = 1;
  for (const Tag* tag = root.get(); !tag->Children.empty(); tag = tag->Children[0].get()) ++depth;
  EXPECT_EQ(depth, kMaxDepth);
  EXPECT_FALSE(Parse(nested(kMaxDepth + 1)));
  // A hostile file is refused, not a stack overflow.
  std::string opens;
  for (int i = 0; i < 300000; ++i) opens += "<a>";
  EXPECT_FALSE(Parse(opens));
}

TEST(ReaderTest, ReadsInBlocksAndSurvivesAnyChunking) {
  std::string document = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<root a='1  2'>";
  for (int i = 0; i < 40; ++i)
    document += "\r\n\t<item id=\"" + std::to_string(i) +
                "\">x &amp; y <![CDATA[z]]]]>\xE2\x82\xAC<!-- c --></item>";
  document += "\r\n</root>\r\n";
  const auto reference = Parse(document);
  ASSERT_TRUE(reference);
  ASSERT_EQ(reference->Children.size(), 40u);
  EXPECT_EQ(reference->Children[7]->GetText(), u"x & y z]]\u20AC");

  for (std::size_t chunk : {1u, 2u, 3u, 5u, 4096u, 100000u}) {
    testing::TrickleFile file(document, chunk);
    std::unique_ptr<Tag> root;
    std::uint32_t line = 0, column = 0;
    ASSERT_TRUE(ParseDocument(root, file, line, column)) << "chunk " << chunk;
    EXPECT_TRUE(testing::SameTree(*root, *reference)) << "chunk " << chunk;
    EXPECT_EQ(line, 44u);
    ASSERT_GE(file.Requests.size(), 2u);
    // Four bytes while the start is examined, large blocks after.
    EXPECT_EQ(file.Requests[0], 4u);
    EXPECT_EQ(file.Requests.back(), 32768u);
  }
}

TEST(ReaderTest, AnErrorInTheFileFailsTheParse) {
  const std::string document = "<a><b>x</b></a>";
  {
    testing::TrickleFile file(document, 100, document.size());  // fails at the last byte
    std::unique_ptr<Tag> root = std::make_unique<Tag>("old");
    std::uint32_t line = 0, column = 0;
    EXPECT_FALSE(ParseDocument(root, file, line, column));
    EXPECT_FALSE(root);  // the previous tree is gone and nothing replaced it
  }
  {
    testing::TrickleFile file(document, 3, 6);
    std::unique_ptr<Tag> root;
    std::uint32_t line = 0, column = 0;
    EXPECT_FALSE(ParseDocument(root, file, line, column));
  }
  {
    auto file = Common::MemoryFile::Create();
    file->Write(document.data(), document.size());
    file->Seek(0);
    file->Status = Common::FileErrorOf(VR_SITE, FileError::Read);
    std::unique_ptr<Tag> root;
    std::uint32_t line = 0, column = 0;
    EXPECT_FALSE(ParseDocument(root, *file, line, column));
  }
}

TEST(ReaderTest, ALargeDocumentParses) {
  std::string document = "<list>";
  const std::string item = "\r\n\t<item type=\"string\">some words &amp; more words</item>";
  while (document.size() < (4u << 20)) document += item;
  document += "\r\n</list>";
  const std::size_t count = (document.size() - 15) / item.size();
  auto root = Parse(document);
  ASSERT_TRUE(root);
  EXPECT_EQ(root->Children.size(), count);
  EXPECT_EQ(root->Children.back()->GetText(), u"some words & more words");

  // One text token several blocks long.
  const std::string big(300000, 'x');
  root = Parse("<a>" + big + "</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetText().size(), big.size());
}

}  // namespace
}  // namespace Xml
