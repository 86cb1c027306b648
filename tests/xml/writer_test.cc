#include <gtest/gtest.h>

#include <string>

#include "common/file_errors.h"
#include "common/site.h"
#include "xml/writer.h"
#include "xml_helpers.h"

namespace Xml {
namespace {

using testing::Parse;
using testing::SameTree;
using testing::Write;
using testing::WriteElement;
using Texts = std::vector<std::u16string>;

constexpr char kBom[] = "\xEF\xBB\xBF";

// The machine template as Virtual PC lays it out: BOM, declaration without
// the space before "?>", tabs, CR LF.
const std::string kTemplate =
    "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<preferences>\r\n"
    "\t<hardware>\r\n"
    "\t\t<firmware>\r\n"
    "\t\t\t<value type=\"string\">bios</value>\r\n"
    "\t\t</firmware>\r\n"
    "\t\t<memory>\r\n"
    "\t\t\t<ram_size type=\"integer\">128</ram_size>\r\n"
    "\t\t</memory>\r\n"
    "\t\t<pci_bus/>\r\n"
    "\t</hardware>\r\n"
    "</preferences>\r\n";

TEST(WriterTest, FlagsChooseMarkDeclarationAndIndentation) {
  auto root = Parse("<a>x</a>");
  ASSERT_TRUE(root);
  const std::string declaration = kDeclaration;
  ASSERT_EQ(declaration.size(), 41u);
  EXPECT_EQ(Write(root.get(), 0), declaration + "<a>x</a>\r\n");
  EXPECT_EQ(Write(root.get(), kByteOrderMark), kBom + declaration + "<a>x</a>\r\n");
  EXPECT_EQ(Write(root.get(), kNoDeclaration), "<a>x</a>\r\n");
  EXPECT_EQ(Write(root.get(), kByteOrderMark | kNoDeclaration), std::string(kBom) + "<a>x</a>\r\n");
  EXPECT_EQ(Write(root.get(), kIndent), declaration + "<a>\r\n\tx\r\n</a>\r\n");
  EXPECT_EQ(Write(nullptr, kByteOrderMark), "");
  EXPECT_EQ(Write(nullptr, kIndent), "");
}

TEST(WriterTest, FlushesOnceAtTheEndAndRefusesTheBinaryForm) {
  auto root = Parse("<a><b/>x<c/></a>");
  ASSERT_TRUE(root);
  {
    testing::CollectingFile file;
    WriteDocument(root.get(), file, kNoDeclaration);
    EXPECT_EQ(file.Bytes, "<a><b/>x<c/></a>\r\n");
    EXPECT_EQ(file.Flushes, 1);
    EXPECT_TRUE(file.Status.IsEmpty());
  }
  {
    testing::CollectingFile file;
    WriteDocument(nullptr, file, 0);
    EXPECT_EQ(file.Writes, 0);
    EXPECT_EQ(file.Flushes, 1);
  }
  for (std::uint32_t flags : {kBinary, kBinary | kByteOrderMark | kIndent}) {
    testing::CollectingFile file;
    WriteDocument(root.get(), file, flags);
    EXPECT_EQ(file.Writes, 0);
    EXPECT_EQ(file.Status.Code(), FileError::NotSupported);
  }
  {
    testing::CollectingFile file;
    file.Status = Common::FileErrorOf(VR_SITE, FileError::DiskFull);
    WriteDocument(root.get(), file, kBinary);
    EXPECT_EQ(file.Status.Code(), FileError::DiskFull);  // the first error stays
  }
}

TEST(WriterTest, EmptyElementsAndIndentationByDepth) {
  auto root = Parse("<a><b/><c>t</c><d><e/></d></a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(WriteElement(*root), "<a><b/><c>t</c><d><e/></d></a>");
  EXPECT_EQ(WriteElement(*root, true),
            "<a>\r\n"
            "\t<b />\r\n"
            "\t<c>t</c>\r\n"
            "\t<d>\r\n"
            "\t\t<e />\r\n"
            "\t</d>\r\n"
            "</a>");

  // Indented, the root keeps its closing tag and its line break even with
  // nothing in it.
  Tag empty("a");
  empty.SetAttribute("x", u"1");
  EXPECT_EQ(WriteElement(empty), "<a x=\"1\"/>");
  EXPECT_EQ(WriteElement(empty, true), "<a x=\"1\">\r\n</a>");
  empty.Text[0] = u"t";
  EXPECT_EQ(WriteElement(empty), "<a x=\"1\">t</a>");
}

TEST(WriterTest, SpacesAroundChildrenBecomeLineBreaks) {
  auto root = Parse("<a>word <b/> word</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(WriteElement(*root), "<a>word\r\n<b/>\r\nword</a>");
  EXPECT_EQ(WriteElement(*root, true), "<a>\r\n\tword\r\n\t<b />\r\n\tword\r\n</a>");
  // Read back, the line breaks are the spaces again.
  auto again = Parse(WriteElement(*root));
  ASSERT_TRUE(again);
  EXPECT_TRUE(SameTree(*again, *root));
}

TEST(WriterTest, EscapesTextAndValuesSoThatTheyReadBack) {
  struct Case {
    std::u16string value;
    const char* text;       // as element text
    const char* attribute;  // as attribute value
  };
  const Case cases[] = {
      {u"a<b&c>d\"e'", "a&lt;b&amp;c>d\"e'", "a&lt;b&amp;c>d&quot;e'"},
      // Spaces the reader would fold away.
      {u"a  b", "a &#32;b", "a &#32;b"},
      {u"a   b", "a &#32;&#32;b", "a &#32;&#32;b"},
      {u" a", "&#32;a", "&#32;a"},
      {u"a ", "a&#32;", "a&#32;"},
      {u" ", "&#32;", "&#32;"},
      // Control codes, lone surrogates and the two non-characters.
      {u"\t\r\x01", "&#9;&#13;&#1;", "&#9;&#13;&#1;"},
      {u"\xD800x\xDC00", "&#55296;x&#56320;", "&#55296;x&#56320;"},
      {u"\xFFFE\xFFFF", "&#65534;&#65535;", "&#65534;&#65535;"},
      {u"\u00E9\u20AC\xD83D\xDE00", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
       "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"},
      // A line feed puts element text into CDATA, spaces and all.
      {u"a\nb", "<![CDATA[a\r\nb]]>", "a&#10;b"},
      {u"  x\n\ty  ", "<![CDATA[  x\r\n\ty  ]]>", "&#32;&#32;x&#10;&#9;y &#32;"},
      {u"<&\n\xD83D\xDE00", "<![CDATA[<&\r\n\xF0\x9F\x98\x80]]>", "&lt;&amp;&#10;\xF0\x9F\x98\x80"},
      // Unless CDATA could not carry it.
      {u"a\n]]>", "a&#10;]]>", "a&#10;]]>"},
      {u"a\r\nb", "a&#13;&#10;b", "a&#13;&#10;b"},
      {u"\n\xD800", "&#10;&#55296;", "&#10;&#55296;"},
      {u"\n\xFFFF", "&#10;&#65535;", "&#10;&#65535;"},
  };
  for (const Case& c : cases) {
    Tag text("a");
    text.Text[0] = c.value;
    const std::string writtenText = WriteElement(text);
    EXPECT_EQ(writtenText, std::string("<a>") + c.text + "</a>");
    Tag attribute("a");
    attribute.SetAttribute("v", c.value);
    const std::string writtenAttribute = WriteElement(attribute);
    EXPECT_EQ(writtenAttribute, std::string("<a v=\"") + c.attribute + "\"/>");

    auto text2 = Parse(writtenText);
    ASSERT_TRUE(text2) << writtenText;
    EXPECT_EQ(text2->GetText(), c.value) << writtenText;
    auto attribute2 = Parse(writtenAttribute);
    ASSERT_TRUE(attribute2) << writtenAttribute;
    EXPECT_EQ(attribute2->GetAttribute("v", u"?"), c.value) << writtenAttribute;
  }
}

TEST(WriterTest, CommentsNeverHoldTwoDashesInARow) {
  Tag root("r");
  auto comment = std::make_unique<Tag>("!--");
  comment->Text[0] = u"a--b---c\nd-\xD800\xFFFF";
  comment->SetAttribute("ignored", u"x");
  root.InsertChild(1, std::move(comment));
  const std::string zwsp = "\xE2\x80\x8B";
  const std::string written = WriteElement(root);
  EXPECT_EQ(written, "<r><!-- a-" + zwsp + "-b-" + zwsp + "-" + zwsp + "-c\r\nd-" +
                         "\xEF\xBF\xBD\xEF\xBF\xBD -->" + "</r>");
  // The reader skips the comment whole.
  auto read = Parse(written);
  ASSERT_TRUE(read);
  EXPECT_TRUE(read->Children.empty());
}

TEST(WriterTest, AnyTextRoundTripsWithoutIndentation) {
  const std::u16string values[] = {
      u"",       u"x",        u"  ",       u"   ",        u" a ",     u"a  b ",
      u"\n",     u"a\n ",     u" \n",      u"\n\n  x",     u"\t",      u" \t",
      u"&<>\"'", u"]]>",      u"a\n]]> ",  u"\r\n",        u"\xD800",  u"\xDC00\xD800 ",
      u"\xFFFE", u"\U0001F600 \U0001F600", u"\x01 \x1F",   u"-->",     u"x  ",
  };
  for (const auto& v : values) {
    // Texts before, between and after two children, and in a leaf.
    Tag root("r");
    root.InsertChild(1, std::make_unique<Tag>("p"));
    Tag* q = root.InsertChild(2, std::make_unique<Tag>("q"));
    root.Text = {v, v, v};
    q->Text[0] = v;
    q->SetAttribute("v", v);
    for (std::uint32_t flags : {0u, kByteOrderMark}) {
      const std::string written = Write(&root, flags);
      auto read = Parse(written);
      ASSERT_TRUE(read) << written;
      EXPECT_TRUE(SameTree(*read, root)) << written;
    }
  }
  // The one loss: a lone space before the first child. Leading whitespace
  // of an element is dropped on reading.
  Tag root("r");
  root.InsertChild(1, std::make_unique<Tag>("p"));
  root.Text[0] = u" ";
  auto read = Parse(Write(&root, 0));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->Text, (Texts{u"", u""}));
}

TEST(WriterTest, TheMachineTemplateWrittenWithTheByteOrderMarkAlone) {
  auto root = Parse(kTemplate);
  ASSERT_TRUE(root);
  const Tag* hardware = root->FindChild("hardware");
  ASSERT_TRUE(hardware);
  EXPECT_EQ(hardware->Text, (Texts{u"", u" ", u" ", u""}));
  EXPECT_EQ(hardware->FindChild("memory")->FindChild("ram_size")->GetText(), u"128");

  const std::string expected =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
      "<preferences><hardware><firmware><value type=\"string\">bios</value></firmware>\r\n"
      "<memory><ram_size type=\"integer\">128</ram_size></memory>\r\n"
      "<pci_bus/></hardware></preferences>\r\n";
  EXPECT_EQ(Write(root.get(), kByteOrderMark), expected);

  // Written and read again, the file stays as it is.
  auto again = Parse(expected);
  ASSERT_TRUE(again);
  EXPECT_TRUE(SameTree(*again, *root));
  EXPECT_EQ(Write(again.get(), kByteOrderMark), expected);
}

TEST(WriterTest, AVirtualPcConfigurationReadsAndKeepsItsLineStructure) {
  const std::string vmc =
      "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\"?>\r\n"
      "<!-- written by Virtual PC -->\r\n"
      "<preferences>\r\n"
      "\t<version type=\"string\">2.0</version>\r\n"
      "\t<hardware>\r\n"
      "\t\t<memory>\r\n"
      "\t\t\t<ram_size type=\"integer\">512</ram_size>\r\n"
      "\t\t</memory>\r\n"
      "\t\t<pci_bus>\r\n"
      "\t\t\t<ide_adapter>\r\n"
      "\t\t\t\t<ide_controller id=\"0\">\r\n"
      "\t\t\t\t\t<location id=\"0\">\r\n"
      "\t\t\t\t\t\t<pathname>\r\n"
      "\t\t\t\t\t\t\t<absolute type=\"string\">C:\\VMs\\Disk &amp; Data.vhd</absolute>\r\n"
      "\t\t\t\t\t\t\t<relative type=\"string\">.\\Disk &amp; Data.vhd</relative>\r\n"
      "\t\t\t\t\t\t</pathname>\r\n"
      "\t\t\t\t\t</location>\r\n"
      "\t\t\t\t</ide_controller>\r\n"
      "\t\t\t</ide_adapter>\r\n"
      "\t\t</pci_bus>\r\n"
      "\t</hardware>\r\n"
      "\t<notes type=\"string\">first line\r\nsecond  line</notes>\r\n"
      "</preferences>\r\n";
  auto root = Parse(vmc);
  ASSERT_TRUE(root);
  const Tag* controller = root->FindChild("hardware")
                              ->FindChild("pci_bus")
                              ->FindChild("ide_adapter")
                              ->FindChild("ide_controller", "id", u"0");
  ASSERT_TRUE(controller);
  const Tag* pathname = controller->FindChild("location", "id", u"0")->FindChild("pathname");
  EXPECT_EQ(pathname->FindChild("absolute")->GetText(), u"C:\\VMs\\Disk & Data.vhd");
  EXPECT_EQ(pathname->FindChild("relative")->GetAttribute("type", u""), u"string");
  EXPECT_EQ(root->FindChild("notes")->GetText(), u"first line second line");

  // Each sibling after the first keeps its own line; indentation goes.
  const std::string written = Write(root.get(), kByteOrderMark);
  EXPECT_NE(written.find("</version>\r\n<hardware>"), std::string::npos) << written;
  EXPECT_NE(written.find("</absolute>\r\n<relative"), std::string::npos) << written;
  EXPECT_EQ(written.find('\t'), std::string::npos);
  auto again = Parse(written);
  ASSERT_TRUE(again);
  EXPECT_TRUE(SameTree(*again, *root));
  EXPECT_EQ(Write(again.get(), kByteOrderMark), written);

  // Indented, the output is stable from the first write on.
  const std::string indented = Write(root.get(), kIndent);
  auto reread = Parse(indented);
  ASSERT_TRUE(reread);
  EXPECT_EQ(Write(reread.get(), kIndent), indented);
  EXPECT_NE(indented.find("\r\n\t\t\t\t<ide_controller id=\"0\">\r\n"), std::string::npos);
}

TEST(WriterTest, MixedContentIsStableAfterOneIndentedWrite) {
  auto root = Parse("<a>lead <b>in <c/> out</b> mid <d>x\ny</d> tail</a>");
  ASSERT_TRUE(root);
  const std::string first = Write(root.get(), kIndent);
  auto read = Parse(first);
  ASSERT_TRUE(read);
  EXPECT_EQ(Write(read.get(), kIndent), first);
  // Without indentation the first write already is the fixed point.
  const std::string plain = Write(root.get(), 0);
  auto plainRead = Parse(plain);
  ASSERT_TRUE(plainRead);
  EXPECT_TRUE(SameTree(*plainRead, *root));
}

}  // namespace
}  // namespace Xml
