#include <gtest/gtest.h>

#include "xml/writer.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Dump;
using testing::Parse;
using testing::Write;
using testing::WriteElement;

TEST(WriterTest, FlagsChooseTheFormAndTheFileIsFlushedOnce) {
  const auto root = Parse("<a>x</a>");
  const std::string declaration = kDeclaration;
  const struct {
    const Tag* root;
    std::uint32_t flags, before, after;
    std::string bytes;
  } cases[] = {
      {root.get(), 0, 0, 0, declaration + "<a>x</a>\r\n"},
      {root.get(), kByteOrderMark | kNoDeclaration, 0, 0, "\xEF\xBB\xBF<a>x</a>\r\n"},
      {root.get(), kIndent, 0, 0, declaration + "<a>\r\n\tx\r\n</a>\r\n"},
      {nullptr, kByteOrderMark, 0, 0, ""},
      // The binary form ignores the other flags; an error already there stays.
      {root.get(), kBinary | kByteOrderMark | kIndent, 0, 0, std::string("BXML\1\1\0\1a\0\1\1x", 13)},
      {root.get(), kBinary, FileError::DiskFull, FileError::DiskFull, ""},
  };
  for (const auto& c : cases) {
    testing::CollectingFile file;
    if (c.before) file.Status = Common::FileErrorOf(VR_SITE, c.before);
    WriteDocument(c.root, file, c.flags);
    EXPECT_EQ(file.Bytes, c.bytes);
    EXPECT_EQ(file.Flushes, 1);
    EXPECT_EQ(file.Status.Code(), c.after);
  }
}

TEST(WriterTest, EmptyElementsIndentationAndLineBreaksAroundChildren) {
  const struct {
    const char* document;
    const char* plain;
    const char* indented;
  } cases[] = {
      {"<a><b/><c>t</c><d><e/></d></a>", "<a><b/><c>t</c><d><e/></d></a>",
       "<a>\r\n\t<b />\r\n\t<c>t</c>\r\n\t<d>\r\n\t\t<e />\r\n\t</d>\r\n</a>"},
      // A space next to a child was a line break.
      {"<a>word <b/> word</a>", "<a>word\r\n<b/>\r\nword</a>",
       "<a>\r\n\tword\r\n\t<b />\r\n\tword\r\n</a>"},
      // Indented, the root keeps its closing tag and line break when empty.
      {"<a x='1'/>", "<a x=\"1\"/>", "<a x=\"1\">\r\n</a>"},
  };
  for (const auto& c : cases) {
    const auto root = Parse(c.document);
    ASSERT_TRUE(root);
    EXPECT_EQ(WriteElement(*root), c.plain);
    EXPECT_EQ(WriteElement(*root, true), c.indented);
  }
}

const struct {
  std::u16string value;
  const char* text;                 // as element text
  const char* attribute = nullptr;  // as attribute value, when not the same
} kEscapes[] = {
    {u"a<b&c>d\"e'", "a&lt;b&amp;c>d\"e'", "a&lt;b&amp;c>d&quot;e'"},
    // Spaces the reader would fold away.
    {u"a  b   c", "a &#32;b &#32;&#32;c"},
    {u" a ", "&#32;a&#32;"},
    // Control codes, lone surrogates and the two non-characters.
    {u"\t\r\x01\xD800x\xDC00\xFFFE\xFFFF", "&#9;&#13;&#1;&#55296;x&#56320;&#65534;&#65535;"},
    // UTF-8 of each length, at its edges.
    {u"\x80\xE9\x7FF\x800\x20AC\xD800\xDC00\xD83D\xDE00\xDBFF\xDFFF",
     "\xC2\x80\xC3\xA9\xDF\xBF\xE0\xA0\x80\xE2\x82\xAC\xF0\x90\x80\x80\xF0\x9F\x98\x80"
     "\xF4\x8F\xBF\xBF"},
    // A line feed puts element text into CDATA, spaces and all...
    {u"  x\n\ty  ", "<![CDATA[  x\r\n\ty  ]]>", "&#32;&#32;x&#10;&#9;y &#32;"},
    {u"<&\n\xD83D\xDE00", "<![CDATA[<&\r\n\xF0\x9F\x98\x80]]>", "&lt;&amp;&#10;\xF0\x9F\x98\x80"},
    // ...unless CDATA could not carry it.
    {u"a\n]]>", "a&#10;]]>"},
    {u"a\r\nb", "a&#13;&#10;b"},
    {u"\n\xD800", "&#10;&#55296;"},
    {u"\n\xFFFF", "&#10;&#65535;"},
};

TEST(WriterTest, EscapesTextAndValuesSoThatAnyTextReadsBack) {
  for (const auto& c : kEscapes) {
    Tag text("a"), attribute("a");
    text.Text[0] = c.value;
    attribute.SetAttribute("v", c.value);
    EXPECT_EQ(WriteElement(text), std::string("<a>") + c.text + "</a>");
    EXPECT_EQ(WriteElement(attribute),
              std::string("<a v=\"") + (c.attribute ? c.attribute : c.text) + "\"/>");
  }

  std::vector<std::u16string> values = {
      u"",       u"x",        u"  ",       u"   ",        u" a ",     u"a  b ",
      u"\n",     u"a\n ",     u" \n",      u"\n\n  x",     u"\t",      u" \t",
      u"&<>\"'", u"]]>",      u"a\n]]> ",  u"\r\n",        u"\xD800",  u"\xDC00\xD800 ",
      u"\xFFFE", u"\U0001F600 \U0001F600", u"\x01 \x1F",   u"-->",     u"x  ",
  };
  for (const auto& c : kEscapes) values.push_back(c.value);
  for (const auto& v : values) {
    // Texts before, between and after two children, in a leaf and a value.
    Tag root("r");
    root.InsertChild(1, std::make_unique<Tag>("p"));
    Tag* q = root.InsertChild(2, std::make_unique<Tag>("q"));
    root.Text = {v, v, v};
    q->Text[0] = v;
    q->SetAttribute("v", v);
    const std::string written = Write(&root, 0);
    const auto read = Parse(written);
    ASSERT_TRUE(read) << written;
    EXPECT_EQ(Dump(*read), Dump(root)) << written;
  }
}

TEST(WriterTest, CommentsNeverHoldTwoDashesInARow) {
  Tag root("r");
  auto comment = std::make_unique<Tag>("!--");
  comment->Text[0] = u"a--b---c\nd-\xD800\xFFFF";
  comment->SetAttribute("ignored", u"x");
  root.InsertChild(1, std::move(comment));
  const std::string zwsp = "\xE2\x80\x8B", written = WriteElement(root);
  EXPECT_EQ(written, "<r><!-- a-" + zwsp + "-b-" + zwsp + "-" + zwsp +
                         "-c\r\nd-\xEF\xBF\xBD\xEF\xBF\xBD --></r>");
  EXPECT_EQ(testing::Tree(written), "r[]");  // the reader skips it whole
}

// The machine template as Virtual PC lays it out: BOM, declaration without
// the space before "?>", tabs, CR LF.
const std::string kTemplate =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<preferences>\r\n\t<hardware>\r\n"
    "\t\t<firmware>\r\n\t\t\t<value type=\"string\">bios</value>\r\n\t\t</firmware>\r\n"
    "\t\t<memory>\r\n\t\t\t<ram_size type=\"integer\">128</ram_size>\r\n\t\t</memory>\r\n"
    "\t\t<pci_bus/>\r\n\t</hardware>\r\n</preferences>\r\n";

TEST(WriterTest, TheTemplateIsRewrittenByteForByteAndRewritingKeepsLineStructure) {
  const std::string expected =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
      "<preferences><hardware><firmware><value type=\"string\">bios</value></firmware>\r\n"
      "<memory><ram_size type=\"integer\">128</ram_size></memory>\r\n"
      "<pci_bus/></hardware></preferences>\r\n";
  EXPECT_EQ(Write(Parse(kTemplate).get(), kByteOrderMark), expected);
  EXPECT_EQ(Write(Parse(expected).get(), kByteOrderMark), expected);

  for (const std::string& document :
       {kTemplate, std::string("<a>lead <b>in <c/> out</b> mid <d>x\ny</d> tail</a>")}) {
    const auto root = Parse(document);
    ASSERT_TRUE(root);
    // Read back, the line breaks are the spaces again; indented, the
    // output is stable after one write.
    EXPECT_EQ(testing::Tree(Write(root.get(), 0)), Dump(*root));
    const std::string indented = Write(root.get(), kIndent);
    EXPECT_EQ(Write(Parse(indented).get(), kIndent), indented);
  }
}

}  // namespace
}  // namespace Xml
