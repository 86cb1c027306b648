// A host's view of the module: only the public headers and dlopen.
#include <dlfcn.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vellumrig/vellumrig.h"

namespace {

using Processor::AutoRef;
using VirtualWareRaw::wstring;

class HostTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    setenv("LANGUAGE", "en", 1);
    handle = dlopen(VELLUMRIG_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    open = reinterpret_cast<SafeOpenVirtualServerFn*>(dlsym(handle, "SafeOpenVirtualServer"));
    ASSERT_NE(open, nullptr) << dlerror();
  }

  static inline void* handle = nullptr;
  static inline SafeOpenVirtualServerFn* open = nullptr;
};

TEST_F(HostTest, ModuleExportsOnlyItsEntryPoint) {
  for (const char* hidden : {"_ZN6Common5Error15AddWindowsErrorEi", "_ZN9Processor9RefObjectD2Ev",
                             "_ZN6Common10GetMessageEj", "_ZTVN8Provider15MSVirtualPCImplE"})
    EXPECT_EQ(dlsym(handle, hidden), nullptr) << hidden;
}

TEST_F(HostTest, TypeSevenOpensTheServerWithEveryInterfaceAndProperty) {
  Common::Error error(Common::NoError);
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 7, server);
  ASSERT_TRUE(error.IsEmpty()) << Common::ToUtf8(Common::FullText(error));
  ASSERT_TRUE(server);

  const std::uint32_t serverIds[] = {
      VirtualWareRaw::SafeVirtualServer::InterfaceId, VirtualWareRaw::ObjectManager::InterfaceId,
      VirtualWareRaw::PropertySet::InterfaceId, VirtualWareRaw::VirtualWorkstation::InterfaceId,
      VirtualWareRaw::FileServicesClient::InterfaceId};
  const std::uint32_t otherIds[] = {
      VirtualWareRaw::SafeVMCollection::InterfaceId, VirtualWareRaw::SafeHardDiskCollection::InterfaceId,
      VirtualWareRaw::SafeVM::InterfaceId, VirtualWareRaw::SafeVMAccess::InterfaceId,
      VirtualWareRaw::SafeRawHardDisk::InterfaceId, VirtualWareRaw::SafeHardDisk::InterfaceId};
  Processor::Interface* base = server.Get();
  for (std::uint32_t id : serverIds) {
    Processor::InterfaceRef ref;
    base->GetInterface(ref, id);
    ASSERT_NE(ref.Pointer, nullptr) << std::hex << id;
    EXPECT_EQ(ref.Meta->GetId(), id);
    // The meta-class counts through the object's one shared count.
    EXPECT_EQ(base->RefCount.load(), 2);
    EXPECT_TRUE(ref.Meta->TryAddRef(ref.Pointer));
    ref.Meta->Release(ref.Pointer);
    ref.Meta->Release(ref.Pointer);
  }
  for (std::uint32_t id : otherIds) {
    Processor::InterfaceRef ref;
    base->GetInterface(ref, id);
    EXPECT_EQ(ref.Pointer, nullptr) << std::hex << id;
    EXPECT_EQ(ref.Meta, nullptr);
  }
  EXPECT_EQ(base->RefCount.load(), 1);

  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
  std::vector<wstring> names;
  ASSERT_TRUE(properties->GetPropertyNames(names).IsEmpty());
  ASSERT_EQ(names.size(), 11u);
  for (const auto& name : names) {
    wstring value;
    std::vector<wstring> values;
    const bool single = properties->GetProperty(name, value).IsEmpty();
    const bool list = properties->GetProperty(name, values).IsEmpty();
    EXPECT_NE(single, list) << Common::ToUtf8(name);  // exactly one form exists
  }
  wstring version;
  properties->GetProperty(u"Version", version);
  EXPECT_EQ(version, u"5.3.582.27");
}

TEST_F(HostTest, WrongTypeIsRefusedAndLeavesTheHolderAsItWas) {
  Common::Error error;
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 6, server);
  EXPECT_EQ(error.Code(), 0x530069u);
  EXPECT_EQ(error.GetText(), u"Failed to open the virtualization server.");
  EXPECT_FALSE(server);

  AutoRef<VirtualWareRaw::SafeVirtualServer> earlier;
  open(error, 7, earlier);
  ASSERT_TRUE(earlier);
  auto* kept = earlier.Get();
  open(error, 6, earlier);
  EXPECT_EQ(earlier.Get(), kept);
}

TEST_F(HostTest, ReopeningReplacesAndReleasesTheEarlierServer) {
  Common::Error error;
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 7, server);
  AutoRef<VirtualWareRaw::SafeVirtualServer> watcher = server;
  EXPECT_EQ(watcher->RefCount.load(), 2);
  open(error, 7, server);
  EXPECT_NE(server.Get(), watcher.Get());
  EXPECT_EQ(watcher->RefCount.load(), 1);  // the holder dropped its reference
}

TEST_F(HostTest, ErrorsCrossTheBoundaryReturnedAndThrown) {
  Common::Error error;
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 7, server);
  AutoRef<VirtualWareRaw::SafeVM> vm;
  Common::Error create = server->CreateVM(u"", u"box", 0, vm);
  EXPECT_EQ(create.Code(), 0x530013u);
  const std::string text = Common::ToUtf8(Common::FullText(create));
  EXPECT_NE(text.find("Failed to create virtual machine 'box'."), std::string::npos) << text;
  EXPECT_NE(text.find("An internal error."), std::string::npos) << text;
  EXPECT_STREQ(create.GetNarrowString("$module"), "vellumrig_vsa64_35791");

  // Adding a cause on the host side clones the module's record when shared.
  Common::Error copy = create;
  copy.AddReason(create.Reason());
  EXPECT_NE(copy.Record(), create.Record());

  auto objects = Processor::QueryInterface<VirtualWareRaw::ObjectManager>(server);
  wstring id;
  try {
    objects->CreateObject(u"dummy", id);
    ADD_FAILURE() << "no throw";
  } catch (const Common::Error& thrown) {
    EXPECT_EQ(thrown.Code(), 0x530040u);
  }
}

TEST_F(HostTest, LanguageChangedAtRunTimeReachesTheCatalogueTexts) {
  Common::Error error;
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  open(error, 7, server);
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
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

TEST_F(HostTest, NullHolderUseThrowsOnTheHostSide) {
  AutoRef<VirtualWareRaw::SafeVirtualServer> empty;
  EXPECT_THROW(empty->Reserved1(), std::invalid_argument);
}

}  // namespace
