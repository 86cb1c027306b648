// A host's view of the module: only the public headers and dlopen.
#include <string>
#include <vector>

#include "loaded_module.h"

namespace {

using ModuleTest::ExpectError;
using Processor::AutoRef;
using VirtualWareRaw::wstring;
using Server = AutoRef<VirtualWareRaw::SafeVirtualServer>;

Server Open(std::uint32_t type, Common::Error* error = nullptr) {
  Common::Error local;
  Server server;
  ModuleTest::OpenFunction()(error ? *error : local, type, server);
  return server;
}

TEST(LoadTest, ModuleExportsOnlyItsEntryPoint) {
  ModuleTest::OpenFunction();
  void* handle = dlopen(VELLUMRIG_MODULE_PATH, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  for (const char* hidden : {"_ZN6Common5Error15AddWindowsErrorEi", "_ZN9Processor9RefObjectD2Ev",
                             "_ZN6Common10GetMessageEj", "_ZTVN8Provider15MSVirtualPCImplE"})
    EXPECT_EQ(dlsym(handle, hidden), nullptr) << hidden;
}

TEST(LoadTest, TypeSevenOpensTheServerWithEveryInterfaceAndProperty) {
  Common::Error error(Common::NoError);
  Server server = Open(7, &error);
  ASSERT_TRUE(error.IsEmpty()) << ModuleTest::Text(error);
  ASSERT_TRUE(server);
  const std::pair<std::uint32_t, bool> ids[] = {
      {VirtualWareRaw::SafeVirtualServer::InterfaceId, true}, {VirtualWareRaw::ObjectManager::InterfaceId, true},
      {VirtualWareRaw::PropertySet::InterfaceId, true}, {VirtualWareRaw::VirtualWorkstation::InterfaceId, true},
      {VirtualWareRaw::FileServicesClient::InterfaceId, true}, {VirtualWareRaw::SafeVMCollection::InterfaceId, false},
      {VirtualWareRaw::SafeHardDiskCollection::InterfaceId, false}, {VirtualWareRaw::SafeVM::InterfaceId, false},
      {VirtualWareRaw::SafeVMAccess::InterfaceId, false}, {VirtualWareRaw::SafeRawHardDisk::InterfaceId, false},
      {VirtualWareRaw::SafeHardDisk::InterfaceId, false}};
  Processor::Interface* base = server.Get();
  for (const auto& [id, present] : ids) {
    Processor::InterfaceRef ref;
    base->GetInterface(ref, id);
    ASSERT_EQ(ref.Pointer != nullptr, present) << std::hex << id;
    ASSERT_EQ(ref.Meta != nullptr, present) << std::hex << id;
    if (!present) continue;
    EXPECT_EQ(ref.Meta->GetId(), id);
    // The meta-class counts through the object's one shared count.
    EXPECT_EQ(base->RefCount.load(), 2);
    EXPECT_TRUE(ref.Meta->TryAddRef(ref.Pointer));
    ref.Meta->Release(ref.Pointer);
    ref.Meta->Release(ref.Pointer);
  }
  EXPECT_EQ(base->RefCount.load(), 1);

  // Every property in its order; nullptr: any single value, "[..]": a list.
  const std::pair<const char16_t*, const char16_t*> expected[] = {
      {u"ID", u"E7F120F4-5479-4C91-AEA0-ACE049E8F4CC"}, {u"ResourceName", u"VHDX files"},
      {u"Name", u"Virtual PC"}, {u"SupportedFirmwareTypes", u"[1,0]"}, {u"Vendor", u"Microsoft"},
      {u"Version", u"5.3.582.27"}, {u"UUID", u"E7F120F4-5479-4C91-AEA0-ACE049E8F4CC"},
      {u"CpuVendor", nullptr}, {u"CpuArchitecture", nullptr}, {u"CpuFamily", nullptr},
      {u"CpuModel", nullptr}};
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
  std::vector<wstring> names;
  ASSERT_TRUE(properties->GetPropertyNames(names).IsEmpty());
  ASSERT_EQ(names.size(), std::size(expected));
  for (std::size_t i = 0; i < names.size(); ++i) {
    SCOPED_TRACE(Common::ToUtf8(names[i]));
    EXPECT_EQ(names[i], expected[i].first);
    wstring value;
    std::vector<wstring> values;
    const Common::Error single = properties->GetProperty(names[i], value);
    const Common::Error list = properties->GetProperty(names[i], values);
    EXPECT_NE(single.IsEmpty(), list.IsEmpty());  // exactly one form exists
    ExpectError(single.IsEmpty() ? list : single, 0x53002C, u"Property '" + names[i] + u"' is not supported.");
    if (list.IsEmpty()) value = u"[" + values.at(0) + u"," + values.at(1) + u"]";
    if (expected[i].second) {
      EXPECT_EQ(value, expected[i].second);
    }
    EXPECT_FALSE(value.empty());
  }
  EXPECT_EQ(properties->GetProperty(u"version", names).Code(), 0x53002Cu);
  EXPECT_EQ(properties->SetProperty(u"Name", u"x").Code(), 0x53002Cu);
  EXPECT_EQ(properties->SetProperty(u"SupportedFirmwareTypes", names).Code(), 0x53002Cu);

  wstring name;
  EXPECT_TRUE(server->Reserved1().IsEmpty() && server->Reserved2().IsEmpty());
  EXPECT_TRUE(server->GetServerName(name).IsEmpty());
  EXPECT_EQ(name, u"Microsoft Virtual PC");
  AutoRef<VirtualWareRaw::SafeVMCollection> collection, another;
  ASSERT_TRUE(server->GetRegisteredVMs(collection).IsEmpty());
  std::uint32_t count = 1;
  EXPECT_TRUE(collection->GetCount(count).IsEmpty());
  EXPECT_EQ(count, 0u);
  AutoRef<VirtualWareRaw::SafeVM> vm;
  ExpectError(collection->GetItem(0, vm), 0x530023, u"Cannot obtain virtual machines by the given index.");
  server->GetRegisteredVMs(another);
  EXPECT_NE(another.Get(), collection.Get());  // always a new one
}

TEST(LoadTest, WrongTypeIsRefusedAndReopeningReplacesTheHeldServer) {
  Common::Error error;
  EXPECT_FALSE(Open(6, &error));
  ExpectError(error, 0x530069, u"Failed to open the virtualization server.");

  Server server = Open(7);
  Server watcher = server;
  ModuleTest::OpenFunction()(error, 6, server);
  EXPECT_EQ(server.Get(), watcher.Get());  // a refusal leaves the holder as it was
  ModuleTest::OpenFunction()(error, 7, server);
  EXPECT_NE(server.Get(), watcher.Get());
  EXPECT_EQ(watcher->RefCount.load(), 1);  // the holder dropped its reference
}

TEST(LoadTest, ErrorsCrossTheBoundaryReturnedAndThrown) {
  Server server = Open(7);
  AutoRef<VirtualWareRaw::SafeVM> vm;
  Common::Error create = server->CreateVM(u"", u"box", 0, vm);
  EXPECT_EQ(create.Code(), 0x530013u);
  const std::string text = ModuleTest::Text(create);
  EXPECT_NE(text.find("Failed to create virtual machine 'box'."), std::string::npos) << text;
  EXPECT_NE(text.find("An internal error."), std::string::npos) << text;
  EXPECT_STREQ(create.GetNarrowString("$module"), "vellumrig_vsa64_35791");
  // Adding a cause on the host side clones the module's record when shared.
  Common::Error copy = create;
  copy.AddReason(create.Reason());
  EXPECT_NE(copy.Record(), create.Record());

  wstring id;
  try {
    Processor::QueryInterface<VirtualWareRaw::ObjectManager>(server)->CreateObject(u"dummy", id);
    ADD_FAILURE() << "no throw";
  } catch (const Common::Error& thrown) {
    EXPECT_EQ(thrown.Code(), 0x530040u);
  }
}

TEST(LoadTest, LanguageChangedAtRunTimeReachesTheCatalogueTexts) {
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(Open(7));
  wstring before, during, after, version;
  properties->GetProperty(u"ResourceName", before);
  setenv("LANGUAGE", "de", 1);
  properties->GetProperty(u"ResourceName", during);
  properties->GetProperty(u"Version", version);
  Common::Error refused = properties->SetProperty(u"Name", u"x");
  setenv("LANGUAGE", "en", 1);
  properties->GetProperty(u"ResourceName", after);
  EXPECT_EQ(before, u"VHDX files");
  EXPECT_EQ(during, u"VHDX-Dateien");
  EXPECT_EQ(after, u"VHDX files");
  EXPECT_EQ(version, u"5.3.582.27");  // literals do not follow the language
  EXPECT_EQ(refused.GetText(), u"Eigenschaft 'Name' wird nicht unterstützt.");
}

}  // namespace
