#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "common/memory_file.h"
#include "host/temp_dir.h"
#include "provider/configuration.h"
#include "provider/xml_helpers.h"

namespace VirtualWareRaw {
namespace {

// The machine template as it ships.
const std::string kTemplate = HostTest::ReadBytes(SOURCE_DIR "/resources/default.vmc");

std::unique_ptr<ConfigurationParser> Parse(const std::string& text) {
  auto file = Common::MemoryFile::Create();
  file->Write(text.data(), text.size());
  file->Rewind();
  return MakeConfigurationParser(file.get());
}

std::string Saved(ConfigurationParser& parser, bool bom) {
  auto file = Common::MemoryFile::Create();
  EXPECT_TRUE(parser.Save(*file, bom));
  return std::string(file->GetData() ? file->GetData() : "", file->Size());
}

TEST(ConfigurationTest, TemplateValuesReadByDottedPaths) {
  auto parser = Parse(kTemplate);
  std::u16string value;
  ASSERT_TRUE(parser->GetValue("preferences.hardware.memory.ram_size", value));
  EXPECT_EQ(value, u"128");
  ASSERT_TRUE(parser->GetAttribute("preferences.hardware.firmware.value", "type", value));
  EXPECT_EQ(value, u"string");
  // An existing tag with empty text answers true and an empty value.
  value = u"stale";
  EXPECT_TRUE(parser->GetValue("preferences.hardware.pci_bus", value));
  EXPECT_EQ(value, u"");
  EXPECT_FALSE(parser->GetValue("preferences.hardware.cdrom", value));
  EXPECT_FALSE(parser->GetAttribute("preferences.hardware.memory.ram_size", "unit", value));
  // Two dots make an empty part, which no tag matches.
  EXPECT_FALSE(parser->GetValue("preferences..hardware", value));
  // A trailing dot adds no part.
  EXPECT_TRUE(parser->GetValue("preferences.hardware.memory.ram_size.", value));
  EXPECT_TRUE(parser->IsRoot());
}

TEST(ConfigurationTest, ChildrenChosenByAttributeAreFoundOrAppended) {
  auto parser = Parse(kTemplate);
  const std::string controllers = "preferences.hardware.pci_bus.ide_adapter.ide_controller";
  auto zero = parser->OpenChild(controllers, "id", u"0", true);
  ASSERT_TRUE(zero);
  auto location = zero->OpenChild("location", "id", u"1", true);
  location->SetAttribute("pathname.absolute", "type", u"string");
  location->SetValue("pathname.absolute", u"/vms/a.vhdx");

  EXPECT_EQ(zero->OpenChild("location", "id", u"3", false), nullptr);
  ASSERT_TRUE(zero->OpenChild("location", "id", u"3", true));
  auto second = zero->OpenChildByIndex("location", 1);
  ASSERT_TRUE(second);
  second->SetAttribute("checked", u"yes");
  EXPECT_EQ(zero->OpenChildByIndex("location", 2), nullptr);

  std::u16string path;
  ASSERT_TRUE(parser->GetValue(controllers + ".location.pathname.absolute", path));
  EXPECT_EQ(path, u"/vms/a.vhdx");
  const std::string text = Saved(*parser, false);
  EXPECT_NE(text.find("<ide_controller id=\"0\"><location id=\"1\"><pathname><absolute "
                      "type=\"string\">/vms/a.vhdx</absolute></pathname></location><location "
                      "checked=\"yes\" id=\"3\"/></ide_controller>"),
            std::string::npos)
      << text;
}

TEST(ConfigurationTest, CacheKeepsTheTagAnAttributeChoseUntilATagIsRemoved) {
  auto parser = Parse(kTemplate);
  const std::string path = "preferences.hardware.pci_bus.location";
  parser->OpenChild(path, "id", u"0", true)->SetValue(u"zero");
  parser->OpenChild(path, "id", u"1", true)->SetValue(u"one");
  std::u16string value;
  // The same path without an attribute gives what the attribute chose last.
  ASSERT_TRUE(parser->GetValue(path, value));
  EXPECT_EQ(value, u"one");
  // A removal by another view must not leave the cache pointing at it.
  parser->OpenChild(path, "id", u"1", false)->Remove();
  ASSERT_TRUE(parser->GetValue(path, value));
  EXPECT_EQ(value, u"zero");
}

TEST(ConfigurationTest, TypedSettersPutTheTypeBeforeTheText) {
  auto parser = MakeConfigurationParser(nullptr);
  SetIntegerValue(parser.get(), "preferences.hardware.memory.ram_size", 4096);
  SetStringValue(parser.get(), "preferences.hardware.firmware.value", u"efi");
  EXPECT_EQ(Saved(*parser, true),
            "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n"
            "<preferences><hardware><memory><ram_size type=\"integer\">4096</ram_size></memory>"
            "<firmware><value type=\"string\">efi</value></firmware></hardware></preferences>\r\n");
}

TEST(ConfigurationTest, RemovingAndTheFixedFailures) {
  auto parser = Parse(kTemplate);
  EXPECT_EQ(parser->OpenChild("settings.hardware", "", u"", false), nullptr);
  auto memory = parser->OpenChild("preferences.hardware.memory", "", u"", false);
  memory->Remove();
  memory->Remove();  // a view without a tag does nothing
  std::u16string value;
  EXPECT_FALSE(parser->GetValue("preferences.hardware.memory.ram_size", value));
  auto child = parser->OpenChild("preferences.hardware", "", u"", false);
  EXPECT_FALSE(child->IsRoot());
  const std::pair<std::function<void()>, std::u16string> cases[] = {
      {[&] { parser->OpenChild("settings.hardware", "", u"", true); },
       u"The specified configuration root is 'settings' but the following one was expected: "
       u"'preferences'."},
      {[&] { parser->GetValue("", value); }, u"Invalid configuration path ''."},
      {[&] { parser->RemoveValue("preferences.hardware"); }, u"RemoveValue Not supported yet."},
      {[&] { child->CreateRoot("other"); }, u"Unable to create root in child element."},
  };
  for (const auto& [call, text] : cases) {
    try {
      call();
      ADD_FAILURE() << "no throw";
    } catch (const Common::Error& e) {
      EXPECT_EQ(e.Code(), 0x53000Cu);
      EXPECT_EQ(e.GetText(), text);
    }
  }
}

TEST(ConfigurationTest, FailedParseLeavesTheEarlierTree) {
  std::unique_ptr<Xml::Tag> tag;
  EXPECT_EQ(UnserializeXML(u"<a><b/></a>", tag).Code(), 0u);
  ASSERT_TRUE(tag);
  EXPECT_EQ(UnserializeXML(u"<a>", tag).Code(), 0x3B0001u);
  EXPECT_EQ(tag->Name, "a");
}

}  // namespace
}  // namespace VirtualWareRaw
