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

using HostTest::Exists;
using HostTest::ReadBytes;
using HostTest::WriteBytes;
using Processor::AutoRef;
using VirtualWareRaw::SafeHardDisk;
using VirtualWareRaw::SafeRawHardDisk;
using VirtualWareRaw::SafeVM;

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

inline std::string Text(const Common::Error& e) { return Common::ToUtf8(Common::FullText(e)); }

class ServerOnRoot : public ::testing::Test {
 protected:
  ServerOnRoot() {
    Common::Error error;
    OpenFunction()(error, VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC, server);
    Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(server)->SetRootDir(root.get());
  }

  std::u16string Storage() const { return dir.Wide(); }
  std::string VmcPath(const std::string& name) const { return dir.Join(name + "/" + name + ".vmc"); }

  AutoRef<SafeVM> Create(const std::u16string& name) {
    AutoRef<SafeVM> vm;
    const Common::Error error = server->CreateVM(Storage(), name, 0, vm);
    EXPECT_TRUE(error.IsEmpty()) << Text(error);
    return vm;
  }
  AutoRef<SafeVM> Open(const std::string& vmc) {
    AutoRef<SafeVM> vm;
    const Common::Error error = server->GetRegisteredVM(Common::FromUtf8(vmc), vm);
    EXPECT_TRUE(error.IsEmpty()) << Text(error);
    return vm;
  }

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> root = Host::OpenFolder(u"/");
  Processor::AutoRef<VirtualWareRaw::SafeVirtualServer> server;
};

inline AutoRef<VirtualWareRaw::PropertySet> Properties(const AutoRef<SafeVM>& vm) {
  return Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm);
}

inline AutoRef<VirtualWareRaw::SafeVMAccess> Access(const AutoRef<SafeVM>& vm) {
  return Processor::QueryInterface<VirtualWareRaw::SafeVMAccess>(vm);
}

inline std::u16string Get(const AutoRef<SafeVM>& vm, const char16_t* name) {
  std::u16string value;
  const Common::Error error = Properties(vm)->GetProperty(name, value);
  EXPECT_TRUE(error.IsEmpty()) << Text(error);
  return value;
}

// A refusal's code and text, and its cause's code unless that is 0.
inline void ExpectError(const Common::Error& e, std::uint32_t code, const std::u16string& text,
                        std::uint32_t reason = 0) {
  EXPECT_EQ(e.Code(), code) << Text(e);
  EXPECT_EQ(e.GetText(), text);
  if (reason != 0) {
    EXPECT_EQ(e.Reason().Code(), reason) << Text(e);
  }
}

// The sectors of a disk object, which keeps its one raw disk alive.
inline VirtualMachineDiskEx* DiskOf(const AutoRef<SafeHardDisk>& disk) {
  AutoRef<SafeRawHardDisk> raw, again;
  EXPECT_TRUE(disk->GetRawDisk(raw).IsEmpty());
  EXPECT_TRUE(disk->GetRawDisk(again).IsEmpty());
  EXPECT_EQ(raw.Get(), again.Get()) << "one raw disk per disk object";
  VirtualMachineDiskEx* ex = nullptr;
  const Common::Error error = raw->GetDisk(ex);
  EXPECT_TRUE(error.IsEmpty()) << Text(error);
  return ex;
}

}  // namespace ModuleTest
