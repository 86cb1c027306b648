// MSVirtualPCImpl: the server object that SafeOpenVirtualServer hands out.
// Module-internal; hosts see it only through its five interfaces.
//
// The server is a root folder plus a fixed set of literal properties. It
// takes no lock of its own: SetRootDir must not run alongside other calls.
#pragma once

#include <memory>

#include "processor/interface_impl.h"
#include "provider/dummy_vm.h"
#include "vellumrig/server.h"

namespace VirtualWareRaw {

inline constexpr char kProviderVersion[] = "5.3.582.27";
inline constexpr char kProviderId[] = "E7F120F4-5479-4C91-AEA0-ACE049E8F4CC";

class MSVirtualPCImpl final : public VirtualWareRaw::SafeVirtualServer,
                              public VirtualWareRaw::ObjectManager,
                              public VirtualWareRaw::PropertySet,
                              public VirtualWareRaw::VirtualWorkstation,
                              public VirtualWareRaw::FileServicesClient {
 public:
  using wstring = VirtualWareRaw::wstring;

  // SafeVirtualServer
  Common::Error Reserved1() override;
  Common::Error CreateVM(const wstring& storage, const wstring& name, std::uint32_t flags,
                         Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) override;
  Common::Error RemoveVM(const wstring& id) override;
  Common::Error GetRegisteredVMs(Processor::AutoRef<VirtualWareRaw::SafeVMCollection>& collection) override;
  Common::Error GetRegisteredVM(const wstring& id, Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) override;
  Common::Error GetServerName(wstring& name) override;
  Common::Error Reserved2() override;
  Common::Error GetVMDefaultFolders(std::vector<wstring>& folders) override;
  Common::Error GetServerType(std::uint32_t& type) override;

  // ObjectManager
  Common::Error CreateObject(const wstring& typeOrXml, wstring& id) override;
  Common::Error GetObject(const wstring& id, Processor::AutoRef<VirtualWareRaw::PropertySet>& object) override;

  // PropertySet
  Common::Error GetProperty(const wstring& name, std::vector<wstring>& values) override;
  Common::Error GetProperty(const wstring& name, wstring& value) override;
  Common::Error SetProperty(const wstring& name, const std::vector<wstring>& values) override;
  Common::Error SetProperty(const wstring& name, const wstring& value) override;
  Common::Error GetPropertyNames(std::vector<wstring>& names) override;

  // VirtualWorkstation
  Common::Error CreateVM(const wstring& storage, const Common::Credentials& credentials,
                         const wstring& name, std::uint32_t flags,
                         Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) override;
  Common::Error RemoveVM(const wstring& id, const Common::Credentials& credentials) override;
  Common::Error GetRegisteredVM(const wstring& id, const Common::Credentials& credentials,
                                Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) override;
  Common::Error GetRegisteredVMs(const wstring& storage, const Common::Credentials& credentials,
                                 const wstring& name,
                                 Processor::AutoRef<VirtualWareRaw::SafeVMCollection>& collection) override;

  // FileServicesClient
  void SetRootDir(rio_dir* root) override;

  // Interface
  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override;
  Processor::MetaClass* GetMetaClass() override;

 private:
  // The root folder, or the error 0x530040 "An internal error." without one.
  std::shared_ptr<rio_dir> Root() const;
  // The process's registry of dummy machines, reached with the root the
  // first time; throws like Root. The server keeps it alive while it lives.
  MSVPCDummyVMSupport& DummySupport();

  std::shared_ptr<rio_dir> root_;
  Processor::AutoRef<MSVPCDummyVMSupport> dummies_;
};

}  // namespace VirtualWareRaw
