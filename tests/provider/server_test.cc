#include <gtest/gtest.h>

#include "common/message_table.h"
#include "provider/server.h"
#include "vellumrig/error_text.h"

namespace VirtualWareRaw {
namespace {

using Processor::AutoRef;
using VirtualWareRaw::wstring;

class ServerTest : public ::testing::Test {
 protected:
  AutoRef<VirtualWareRaw::SafeVirtualServer> server =
      Processor::MakeRef<VirtualWareRaw::SafeVirtualServer, MSVirtualPCImpl>();
  AutoRef<VirtualWareRaw::PropertySet> properties =
      Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
  AutoRef<VirtualWareRaw::VirtualWorkstation> workstation =
      Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(server);

  wstring Single(const wstring& name) {
    wstring value;
    const Common::Error e = properties->GetProperty(name, value);
    EXPECT_TRUE(e.IsEmpty()) << Common::ToUtf8(Common::FullText(e));
    return value;
  }
};

void ExpectNotSupported(const Common::Error& e, const std::u16string& name) {
  EXPECT_EQ(e.Code(), 0x53002Cu);
  EXPECT_EQ(e.GetText(), u"Property '" + name + u"' is not supported.");
}

TEST_F(ServerTest, PropertiesComeInTheirOrderWithTheirValues) {
  std::vector<wstring> names;
  ASSERT_TRUE(properties->GetPropertyNames(names).IsEmpty());
  const std::vector<wstring> expected = {u"ID",        u"ResourceName",    u"Name",
                                         u"SupportedFirmwareTypes", u"Vendor", u"Version",
                                         u"UUID",      u"CpuVendor",       u"CpuArchitecture",
                                         u"CpuFamily", u"CpuModel"};
  EXPECT_EQ(names, expected);
  EXPECT_EQ(Single(u"ID"), u"E7F120F4-5479-4C91-AEA0-ACE049E8F4CC");
  EXPECT_EQ(Single(u"UUID"), Single(u"ID"));
  EXPECT_EQ(Single(u"ResourceName"), u"VHDX files");
  EXPECT_EQ(Single(u"Name"), u"Virtual PC");
  EXPECT_EQ(Single(u"Vendor"), u"Microsoft");
  EXPECT_EQ(Single(u"Version"), u"5.3.582.27");
  EXPECT_EQ(Single(u"CpuVendor").size(), 12u);
  EXPECT_FALSE(Single(u"CpuFamily").empty());
  std::vector<wstring> firmware;
  ASSERT_TRUE(properties->GetProperty(u"SupportedFirmwareTypes", firmware).IsEmpty());
  EXPECT_EQ(firmware, (std::vector<wstring>{u"1", u"0"}));
}

TEST_F(ServerTest, CatalogueTextsFollowTheActiveTableAndLiteralsDoNot) {
  // A table whose every entry is empty: the catalogue texts go with it.
  std::vector<std::uint32_t> empty(2 + Common::Msg::kEntryCount + 1, 0);
  empty[0] = static_cast<std::uint32_t>(empty.size() * 4);
  empty[1] = Common::Msg::kEntryCount;
  for (std::uint32_t i = 0; i < Common::Msg::kEntryCount; ++i)
    empty[2 + i] = (Common::Msg::kEntryCount - i) * 4;
  Common::SetActiveMessageTable(reinterpret_cast<const std::uint8_t*>(empty.data()));
  const wstring vendor = Single(u"Vendor");
  const wstring version = Single(u"Version");
  Common::SetActiveMessageTable(Common::kEnglishMessageTable);
  EXPECT_EQ(vendor, u"");
  EXPECT_EQ(version, u"5.3.582.27");
}

TEST_F(ServerTest, UnknownNamesWrongFormsAndAllSetsAreRefused) {
  wstring value;
  std::vector<wstring> values;
  ExpectNotSupported(properties->GetProperty(u"version", value), u"version");
  ExpectNotSupported(properties->GetProperty(u"SupportedFirmwareTypes", value),
                     u"SupportedFirmwareTypes");
  ExpectNotSupported(properties->GetProperty(u"Version", values), u"Version");
  ExpectNotSupported(properties->SetProperty(u"Name", u"x"), u"Name");
  ExpectNotSupported(properties->SetProperty(u"SupportedFirmwareTypes", values),
                     u"SupportedFirmwareTypes");
}

TEST_F(ServerTest, LiteralOperationsSucceedWithoutARoot) {
  EXPECT_TRUE(server->Reserved1().IsEmpty());
  EXPECT_TRUE(server->Reserved2().IsEmpty());
  wstring name;
  EXPECT_TRUE(server->GetServerName(name).IsEmpty());
  EXPECT_EQ(name, u"Microsoft Virtual PC");
  std::uint32_t type = 0;
  EXPECT_TRUE(server->GetServerType(type).IsEmpty());
  EXPECT_EQ(type, 7u);

  AutoRef<VirtualWareRaw::SafeVMCollection> collection;
  ASSERT_TRUE(server->GetRegisteredVMs(collection).IsEmpty());
  std::uint32_t count = 1;
  EXPECT_TRUE(collection->GetCount(count).IsEmpty());
  EXPECT_EQ(count, 0u);
  AutoRef<VirtualWareRaw::SafeVM> vm;
  const Common::Error e = collection->GetItem(0, vm);
  EXPECT_EQ(e.Code(), 0x530023u);
  EXPECT_EQ(e.GetText(), u"Cannot obtain virtual machines by the given index.");
  AutoRef<VirtualWareRaw::SafeVMCollection> another;
  server->GetRegisteredVMs(another);
  EXPECT_NE(another.Get(), collection.Get());  // always a new one
}

}  // namespace
}  // namespace VirtualWareRaw
