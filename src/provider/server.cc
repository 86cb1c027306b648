#include "provider/server.h"

#include <string>

#include "common/site.h"
#include "provider/empty_vm_collection.h"
#include "provider/errors.h"
#include "provider/processor_info.h"
#include "vellumrig/error_text.h"
#include "vellumrig/folder.h"

namespace VirtualWareRaw {
namespace {

using VirtualWareRaw::wstring;

constexpr const char16_t* kPropertyNames[] = {
    u"ID",       u"ResourceName", u"Name",     u"SupportedFirmwareTypes",
    u"Vendor",   u"Version",      u"UUID",     u"CpuVendor",
    u"CpuArchitecture", u"CpuFamily", u"CpuModel"};

wstring Widen(const std::string& text) { return Common::FromUtf8(text); }

Common::Error NotSupported(const Common::ErrorSite& site, const wstring& name) {
  return Common::MessageError(site, kPropertyNotSupported, {name});
}

}  // namespace

std::shared_ptr<rio_dir> MSVirtualPCImpl::Root() const {
  if (!root_) throw Common::MessageError(VR_SITE, kInternalError);
  return root_;
}

void MSVirtualPCImpl::RequireMachines() const {
  Root();
  // Machines on disk are not built yet: with a root, say so plainly.
  throw Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error MSVirtualPCImpl::Reserved1() { return Common::NoError; }
Common::Error MSVirtualPCImpl::Reserved2() { return Common::NoError; }

Common::Error MSVirtualPCImpl::CreateVM(const wstring& storage, const wstring& name,
                                        std::uint32_t flags,
                                        Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) {
  return CreateVM(storage, Common::Credentials{}, name, flags, vm);
}

Common::Error MSVirtualPCImpl::RemoveVM(const wstring& id) {
  return RemoveVM(id, Common::Credentials{});
}

Common::Error MSVirtualPCImpl::GetRegisteredVMs(
    Processor::AutoRef<VirtualWareRaw::SafeVMCollection>& collection) {
  collection = Processor::MakeRef<VirtualWareRaw::SafeVMCollection, EmptyVMCollectionImpl>();
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetRegisteredVM(const wstring& id,
                                               Processor::AutoRef<VirtualWareRaw::SafeVM>& vm) {
  return GetRegisteredVM(id, Common::Credentials{}, vm);
}

Common::Error MSVirtualPCImpl::GetServerName(wstring& name) {
  name = u"Microsoft Virtual PC";
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetVMDefaultFolders(std::vector<wstring>&) {
  try {
    RequireMachines();
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetServerType(std::uint32_t& type) {
  type = VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC;
  return Common::NoError;
}

// The forwarding operations let a failure to reach the root escape as a
// thrown Common::Error: hosts rely on seeing it that way.
Common::Error MSVirtualPCImpl::CreateObject(const wstring&, wstring&) {
  RequireMachines();
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetObject(const wstring&,
                                         Processor::AutoRef<VirtualWareRaw::PropertySet>&) {
  RequireMachines();
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetProperty(const wstring& name, std::vector<wstring>& values) {
  if (name != u"SupportedFirmwareTypes") return NotSupported(VR_SITE, name);
  values = {u"1", u"0"};  // efi, then bios
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetProperty(const wstring& name, wstring& value) {
  if (name == u"ID" || name == u"UUID") value = Widen(kProviderId);
  else if (name == u"ResourceName") value = Common::MessageText(Common::Msg::ResourceNameText);
  else if (name == u"Name") value = Common::MessageText(Common::Msg::ServerNameText);
  else if (name == u"Vendor") value = Common::MessageText(Common::Msg::VendorText);
  else if (name == u"Version") value = Widen(kProviderVersion);
  else if (name == u"CpuVendor") value = Widen(ThisProcessor().Vendor);
  else if (name == u"CpuArchitecture") value = Widen(CpuArchitecture(ThisProcessor()));
  else if (name == u"CpuFamily") value = Widen(std::to_string(ThisProcessor().Family));
  else if (name == u"CpuModel") value = Widen(std::to_string(ThisProcessor().Model));
  else return NotSupported(VR_SITE, name);
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::SetProperty(const wstring& name, const std::vector<wstring>&) {
  return NotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCImpl::SetProperty(const wstring& name, const wstring&) {
  return NotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCImpl::GetPropertyNames(std::vector<wstring>& names) {
  names.assign(std::begin(kPropertyNames), std::end(kPropertyNames));
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::CreateVM(const wstring&, const Common::Credentials&,
                                        const wstring& name, std::uint32_t,
                                        Processor::AutoRef<VirtualWareRaw::SafeVM>&) {
  try {
    RequireMachines();
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kCreateVMFailed, {name}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::RemoveVM(const wstring&, const Common::Credentials&) {
  try {
    RequireMachines();
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kDeleteVMFailed, {}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetRegisteredVM(const wstring& id, const Common::Credentials&,
                                               Processor::AutoRef<VirtualWareRaw::SafeVM>&) {
  try {
    RequireMachines();
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kOpenVMFailed, {id}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetRegisteredVMs(
    const wstring&, const Common::Credentials&, const wstring&,
    Processor::AutoRef<VirtualWareRaw::SafeVMCollection>& collection) {
  try {
    RequireMachines();
    collection = Processor::MakeRef<VirtualWareRaw::SafeVMCollection, EmptyVMCollectionImpl>();
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kRegisteredVMsFailed, {}, e);
  }
  return Common::NoError;
}

// The server keeps a folder of its own on the same place, so that the host
// may drop or reuse the object it handed over.
void MSVirtualPCImpl::SetRootDir(rio_dir* root) {
  root_ = root ? std::shared_ptr<rio_dir>(root->OpenFolder(u".")) : nullptr;
}

void MSVirtualPCImpl::GetInterface(Processor::InterfaceRef& out, std::uint32_t id) {
  Processor::FindInterface<VirtualWareRaw::SafeVirtualServer, VirtualWareRaw::ObjectManager,
                           VirtualWareRaw::PropertySet, VirtualWareRaw::VirtualWorkstation,
                           VirtualWareRaw::FileServicesClient>(this, out, id);
}

Processor::MetaClass* MSVirtualPCImpl::GetMetaClass() {
  return Processor::InterfaceMetaClass<VirtualWareRaw::SafeVirtualServer>::Instance();
}

}  // namespace VirtualWareRaw
