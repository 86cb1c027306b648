#include <gtest/gtest.h>

#include "xml/reader.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Parse;
using testing::Tree;

TEST(ReaderTest, DocumentsReadAsTrees) {
  const std::pair<const char*, const char*> cases[] = {
      // Whitespace folds to one space between things; leading and trailing
      // whitespace of an element is lost, around a child one space stays;
      // the entry after a child exists even when empty.
      {"<a> one \t\r\n two </a>", "a[one two]"},
      {"<a>word <b/> word<c/>word<d/></a>", "a[word b[] wordc[]wordd[]]"},
      {"<a>\r\n\t<b>x</b>\r\n\t<c/>\r\n</a>", "a[b[x] c[]]"},
      // Comments and instructions vanish without joining their neighbours.
      {"<a>x<!--\tc\r\n-- ---->y <?pi d?> z</a>", "a[xy z]"},
      // CDATA keeps its spaces, drops carriage returns; whitespace around it folds.
      {"<a><![CDATA[]]>x  <![CDATA[ y  z ]]>  w</a>", "a[x  y  z  w]"},
      {"<a><![CDATA[<b>&amp;\r\n\tx]]]]]></a>", "a[<b>&amp;{A}{9}x]]]]"},
      // Entities; whitespace after one is pending again.
      {"<a>&#32;x &amp;&#32; y &lt; z</a>", "a[ x &  y < z]"},
      {"<a>&lt;&gt;&amp;&apos;&quot;&#65;&#0057;&#x6A;&#x6f;&#x4a;&#x4F;&#x0000000000041;</a>",
       "a[<>&'\"A9joJOA]"},
      {"<a>&#9;&#10;&#0;&#xFFFF;&#xD800;&#x10000;&#65536;&#x10FFFF;</a>",
       "a[{9}{A}{0}{FFFF}{D800}{D800}{DC00}{D800}{DC00}{DBFF}{DFFF}]"},
      // UTF-8 in text, values and CDATA, the edges of each length included.
      {"<a v='\xE2\x82\xAC'>\xC2\x80\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\x7F\xEF\xBF\xBD"
       "\xF4\x8F\xBF\xBF\xE0\xA0\x80\xED\x9F\xBF\xF0\x90\x80\x80<![CDATA[\xC3\xA9]]></a>",
       "a v=\"{20AC}\"[{80}{E9}{20AC}{D83D}{DE00}{7F}{FFFD}{DBFF}{DFFF}{800}{D7FF}{D800}{DC00}"
       "{E9}]"},
      // Values are normalised whatever xml:space says.
      {"<a xml:space='preserve' v=\"  one \t\r\n two  \" w = 'it\"s' e=\"\" "
       "x=\"&lt;&#9;&quot;&apos;\"><b c=' x '/></a>",
       "a e=\"\" v=\"one two\" w=\"it\"s\" x=\"<{9}\"'\" xml:space=\"preserve\"[b c=\"x\"[]]"},
      // Preserve (exactly that value) holds for the tag and its descendants;
      // whitespace behind a preserving child is the parent's again.
      {"<a>x  y<p xml:space=\"preserve\">  two  spaces <q>\t</q> </p>"
       "<n xml:space=\"Preserve\"> one  two </n><m> one  two </m></a>",
       "a[x yp xml:space=\"preserve\"[  two  spaces q[{9}] ]n xml:space=\"Preserve\"[one two]"
       "m[one two]]"},
      {"<a xml:space=\"preserve\">\r\n x</a>", "a xml:space=\"preserve\"[{D}{A} x]"},
      {"<a><b xml:space=\"preserve\"> x </b>  y  z<c xml:space='preserve'/>  w</a>",
       "a[b xml:space=\"preserve\"[ x ] y zc xml:space=\"preserve\"[] w]"},
      {"\xEF\xBB\xBF<a>x</a>", "a[x]"},
  };
  for (const auto& [document, tree] : cases) EXPECT_EQ(Tree(document), tree) << document;
}

TEST(ReaderTest, MalformedDocumentsFailAndWellFormedOnesParse) {
  std::vector<std::string> refused = {
      "<a><b x='1' y='2' x='3'></b></a>", "<a></b>", "<a></A>", "<a/><b/>", "text<a/>", "<a>",
      "<a x></a>", "<a x=1/>", "<a x='1\"/>", "<a x='<'/>", "<a></ a>", "<a>< b/></a>",
      "<a><1/></a>", "<a><!x></a>", "<a/ >", "", "<!-- only a comment -->",
      "<!DOCTYPE a [<!ENTITY e 'x'>]><a/>", "<!DOCTYPEa><a/>", "<!doctype a><a/>",
      "<a>&#x110000;</a>", "<a>&#xFFFFFFFFFF;</a>", "<a>&#X41;</a>", "<a>&#x;</a>", "<a>&#;</a>",
      "<a>&#65</a>", "<a>&#x4G;</a>", "<a>&LT;</a>", "<a>&lt</a>",
      "<a><![CDATA[x</a>", "<a><![CDATA[x\x02]]></a>", "<a><!-- \x1F --></a>",
      "\xEF\xBB<a/>", "BXM", "BXML\x01<a/>", std::string("<a>x\0y</a>", 10),
      std::string("<a/>\0", 5),
      // An error one byte before the end of input is an error.
      "<a/>&x", "<a/><",
  };
  // UTF-8 is decoded strictly, in text, values and CDATA: overlong forms,
  // surrogates, values past 0x10FFFF, U+FFFE and U+FFFF, stray and cut-short
  // sequences, control bytes.
  for (const char* bytes :
       {"\xC0\x80", "\xC1\xBF", "\xE0\x80\x80", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
        "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xEF\xBF\xBE", "\xEF\xBF\xBF",
        "\x80", "\xE2\x82", "\xE2\x82x", "\xFF", "\x01", "\x1F"})
    for (std::string frame : {"<a>%</a>", "<a v='%'/>", "<a><![CDATA[%]]></a>"})
      refused.push_back(frame.replace(frame.find('%'), 1, bytes));
  // Elements nest at most kMaxDepth deep.
  std::string nested;
  for (std::size_t i = 0; i < kMaxDepth; ++i) nested.insert(0, "<a>").append("</a>");
  EXPECT_TRUE(Parse(nested));
  refused.push_back("<a>" + nested + "</a>");
  for (const std::string& document : refused) EXPECT_FALSE(Parse(document)) << document;

  const char* const accepted[] = {
      "<?xml version=\"1.0\"?>\r\n<!DOCTYPE a SYSTEM \"a.dtd\">\r\n<!-- x -- y -->\r\n<a/>\r\n",
      "<a:b.c-d_e x:y='1'></a:b.c-d_e>", "<_a/>", "<!DOCTYPE ><a/>", "<a></a  \t>", "<a/><!-- after --><?pi?>  ",
      "<a xml:space='preserve'> x </a>\r\n", "<a xml:space='preserve'/>\r\n",
      // The scan stops where the input stops; behind the root that is success.
      "<a/>&", "<a/><!-- unterminated", "<a/><![CDATA[",
  };
  for (const char* document : accepted) EXPECT_TRUE(Parse(document)) << document;
}

TEST(ReaderTest, PositionsCountLinesAndByteColumnsWithTabStops) {
  const struct {
    const char* document;
    std::uint32_t line, column;
  } cases[] = {
      // An entity error is at the byte after the "&", a failed token at its start.
      {"<a>&x;</a>", 1, 5}, {"<a>\t&x;</a>", 1, 10}, {"<a>12345\t&x;</a>", 1, 18},
      {"<a>1234567890123\t&x;</a>", 1, 26}, {"<a>\xC3\xA9&x;</a>", 1, 7}, {"<a>\n</b>", 2, 1},
      {"<a>\n  <b>\n\t<c x=\"1\" x=\"2\"/></b></a>", 3, 18}, {"<a>ok \xC0\x80</a>", 1, 7},
      {"\r\n<a>\r\n\x01", 3, 1}, {"BXML\x01<a/>", 1, 1},
      // Success stops behind everything.
      {"<a/>\r\n", 2, 1}, {"<a/>", 1, 5},
  };
  for (const auto& c : cases) {
    const auto parsed = testing::ParseBytes(c.document);
    EXPECT_EQ(parsed.Line, c.line) << c.document;
    EXPECT_EQ(parsed.Column, c.column) << c.document;
  }
}

TEST(ReaderTest, ReadsInBlocksSurvivesAnyChunkingAndFailsWithTheFile) {
  std::string document = "\xEF\xBB\xBF<?xml version=\"1.0\"?>\r\n<root a='1  2'>";
  for (int i = 0; i < 40; ++i)
    document += "\r\n\t<item id=\"" + std::to_string(i) +
                "\">x &amp; y <![CDATA[z]]]]>\xE2\x82\xAC<!-- c --></item>";
  document += "\r\n</root>\r\n";
  const std::string reference = Tree(document);

  for (std::size_t chunk : {1u, 2u, 3u, 5u, 4096u, 100000u}) {
    testing::TrickleFile file(document, chunk);
    std::unique_ptr<Tag> root;
    std::uint32_t line = 0, column = 0;
    ASSERT_TRUE(ParseDocument(root, file, line, column)) << "chunk " << chunk;
    EXPECT_EQ(testing::Dump(*root), reference) << "chunk " << chunk;
    EXPECT_EQ(line, 44u);
    // Four bytes while the start is examined, large blocks after.
    EXPECT_EQ(file.Requests.front(), 4u);
    EXPECT_EQ(file.Requests.back(), 32768u);
  }
  // One text token many blocks long.
  const auto root = Parse("<a>" + std::string(300000, 'x') + "</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->GetText(), std::u16string(300000, u'x'));
  // An error in the file's Status fails the parse, here at the last byte.
  testing::TrickleFile failing("<a><b>x</b></a>", 100);
  failing.FailAfter = failing.Data.size();
  auto old = std::make_unique<Tag>("old");
  std::uint32_t line = 0, column = 0;
  EXPECT_FALSE(ParseDocument(old, failing, line, column));
  EXPECT_FALSE(old);
}

}  // namespace
}  // namespace Xml
