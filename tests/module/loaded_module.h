// The built module loaded as a host loads it, and a server on "/" over a
// scratch folder, for the tests that work through the module's interfaces.
#pragma once

#include <dlfcn.h>

#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/vellumrig.h"

namespace ModuleTest {

// Opens the module once per process, with English texts.
inline SafeOpenVirtualServerFn* OpenFunction() {
  static SafeOpenVirtualServerFn* open = [] {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    setenv("LANGUAGE", "en", 1);
    void* handle = dlopen(VELLUMRIG_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw std::runtime_error(dlerror());
    return reinterpret_cast<SafeOpenVirtualServerFn*>(dlsym(handle, "SafeOpenVirtualServer"));
  }();
  return open;
}

class ServerOnRoot : public ::testing::Test {
 protected:
  ServerOnRoot() {
    Common::Error error;
    OpenFunction()(error, VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC, server);
    Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server)->SetRootDir(root.get());
  }

  std::u16string Storage() const { return dir.Wide(); }
  std::string VmcPath(const std::string& name) const { return dir.Join(name + "/" + name + ".vmc"); }

  Processor::AutoRef<VirtualWareRaw::SafeVM> Create(const std::u16string& name) {
    Processor::AutoRef<VirtualWareRaw::SafeVM> vm;
    const Common::Error error = server->CreateVM(Storage(), name, 0, vm);
    EXPECT_TRUE(error.IsEmpty()) << Common::ToUtf8(Common::FullText(error));
    return vm;
  }
  Processor::AutoRef<VirtualWareRaw::SafeVM> Open(const std::string& vmc) {
    Processor::AutoRef<VirtualWareRaw::SafeVM> vm;
    const Common::Error error = server->GetRegisteredVM(Common::FromUtf8(vmc), vm);
    EXPECT_TRUE(error.IsEmpty()) << Common::ToUtf8(Common::FullText(error));
    return vm;
  }

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> root = Host::OpenFolder(u"/");
  Processor::AutoRef<VirtualWareRaw::SafeVirtualServer> server;
};

inline std::string Text(const Common::Error& e) { return Common::ToUtf8(Common::FullText(e)); }

inline Processor::AutoRef<VirtualWareRaw::PropertySet> Properties(
    const Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) {
  return Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm);
}

inline Processor::AutoRef<VirtualWareRaw::SafeVMAccess> Access(
    const Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) {
  return Processor::QueryInterface<VirtualWareRaw::SafeVMAccess>(vm);
}

inline std::u16string Get(const Processor::AutoRef<VirtualWareRaw::SafeVM>& vm, const char16_t* name) {
  std::u16string value;
  const Common::Error error = Properties(vm)->GetProperty(name, value);
  EXPECT_TRUE(error.IsEmpty()) << Common::ToUtf8(Common::FullText(error));
  return value;
}

}  // namespace ModuleTest
