#include "provider/server.h"

#include <string>

#include "common/assert.h"
#include "common/site.h"
#include "common/trace.h"
#include "provider/empty_vm_collection.h"
#include "provider/errors.h"
#include "provider/file_utilities.h"
#include "provider/machine.h"
#include "provider/processor_info.h"
#include "provider/vm_collection.h"
#include "vellumrig/error_text.h"
#include "vellumrig/folder.h"

namespace VirtualWareRaw {
namespace {

constexpr const char16_t* kPropertyNames[] = {
    u"ID",       u"ResourceName", u"Name",     u"SupportedFirmwareTypes",
    u"Vendor",   u"Version",      u"UUID",     u"CpuVendor",
    u"CpuArchitecture", u"CpuFamily", u"CpuModel"};

wstring Widen(const std::string& text) { return Common::FromUtf8(text); }

}  // namespace

std::shared_ptr<rio_dir> MSVirtualPCImpl::Root() const {
  if (!root_) throw Common::MessageError(VR_SITE, kInternalError);
  return root_;
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

Common::Error MSVirtualPCImpl::GetVMDefaultFolders(std::vector<wstring>& folders) {
  try {
    folders = VirtualWareRaw::GetVMDefaultFolders(*Root());
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetServerType(std::uint32_t& type) {
  type = VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC;
  return Common::NoError;
}

MSVPCDummyVMSupport& MSVirtualPCImpl::DummySupport() {
  std::shared_ptr<rio_dir> root = Root();
  if (!dummies_) dummies_ = MSVPCDummyVMSupport::Instance();
  dummies_->SetRootOnce(root);
  return *dummies_;
}

// The forwarding operations let a failure to reach the root escape as a
// thrown Common::Error: hosts rely on seeing it that way.
Common::Error MSVirtualPCImpl::CreateObject(const wstring& typeOrXml, wstring& id) {
  return DummySupport().CreateObject(typeOrXml, id);
}

Common::Error MSVirtualPCImpl::GetObject(const wstring& id,
                                         Processor::AutoRef<VirtualWareRaw::PropertySet>& object) {
  return DummySupport().GetObject(id, object);
}

Common::Error MSVirtualPCImpl::GetProperty(const wstring& name, std::vector<wstring>& values) {
  if (name != u"SupportedFirmwareTypes") return PropertyNotSupported(VR_SITE, name);
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
  else return PropertyNotSupported(VR_SITE, name);
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::SetProperty(const wstring& name, const std::vector<wstring>&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCImpl::SetProperty(const wstring& name, const wstring&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCImpl::GetPropertyNames(std::vector<wstring>& names) {
  names.assign(std::begin(kPropertyNames), std::end(kPropertyNames));
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::CreateVM(const wstring& storage, const Common::Credentials& credentials,
                                        const wstring& name, std::uint32_t,
                                        Processor::AutoRef<SafeVM>& vm) {
  try {
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::CreatingVM, {name, storage});
    if (!storage.empty() && credentials.IsGiven())
      SetAccessCredentialsHelper(*Root(), storage, credentials);
    wstring where = storage;
    if (where.empty()) {
      std::vector<wstring> folders;
      if (Common::Error error = GetVMDefaultFolders(folders)) throw error;
      if (!VR_ASSERT(!folders.empty())) throw Common::MessageError(VR_SITE, kInternalError);
      where = folders.front();
    }
    // No test of an existing machine: its file is written over with the
    // template.
    vm = CreateMSVPCVirtualMachine(*Root(), where, name);
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kCreateVMFailed, {name}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::RemoveVM(const wstring& id, const Common::Credentials& credentials) {
  try {
    // A dummy is answered from memory; any failure there means the
    // identifier is no dummy, and the file system decides.
    if (DummySupport().RemoveVM(id).IsEmpty()) return Common::NoError;
    std::shared_ptr<rio_dir> root = Root();
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::RemovingVM, {id});
    const char16_t* last = id.c_str();
    std::unique_ptr<rio_dir> folder = root->OpenParentFolder(last);
    if (folder && credentials.IsGiven()) SetAccessCredentialsHelper(*folder, folder->FullPath(), credentials);
    if (!folder) throw root->TakeError();
    if (!folder->Self()) throw folder->TakeError();
    const std::u16string file(last);
    {
      Processor::AutoRef<SafeVM> vm = OpenMSVPCVirtualMachine(*root, id);
      static_cast<MSVirtualPCVM*>(vm.Get())->RemoveHardDisks();
    }
    folder->DeleteFile(file);
    if (Common::Error error = folder->TakeError()) throw error;
    if (IsFolderEmpty(*folder)) {
      const std::u16string path = RemoveTrailingSeparators(folder->FullPath(), folder->Separator());
      const char16_t* name = path.c_str();
      std::unique_ptr<rio_dir> parent = root->OpenParentFolder(name);
      if (!parent) throw root->TakeError();
      parent->DeleteFolder(name);
      if (Common::Error error = parent->TakeError()) throw error;
    }
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kDeleteVMFailed, {}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetRegisteredVM(const wstring& id, const Common::Credentials& credentials,
                                               Processor::AutoRef<SafeVM>& vm) {
  try {
    if (DummySupport().GetRegisteredVM(this, id, credentials, vm).IsEmpty()) return Common::NoError;
    std::shared_ptr<rio_dir> root = Root();
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::OpeningVM, {id});
    const char16_t* last = id.c_str();
    std::unique_ptr<rio_dir> folder = root->OpenParentFolder(last);
    if (!folder) throw root->TakeError();
    if (credentials.IsGiven()) SetAccessCredentialsHelper(*folder, folder->FullPath(), credentials);
    // The machine resolves the whole identifier itself, so that a relative
    // one means the same as here.
    vm = OpenMSVPCVirtualMachine(*root, id);
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kOpenVMFailed, {id}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCImpl::GetRegisteredVMs(const wstring& storage,
                                                const Common::Credentials& credentials,
                                                const wstring& name,
                                                Processor::AutoRef<SafeVMCollection>& collection) {
  try {
    auto found = Processor::MakeRef<CommonVMCollectionImpl, CommonVMCollectionImpl>();
    std::shared_ptr<rio_dir> root = Root();
    const char16_t separator = root->Separator();
    const std::u16string safe = SafeName(name);
    const std::u16string path =
        root->FullPath() + storage + separator + safe + separator + safe + u".vmc";
    // A machine that is not there leaves the list empty; that is no failure.
    Processor::AutoRef<SafeVM> vm;
    if (GetRegisteredVM(path, credentials, vm).IsEmpty()) found->Add(vm);
    collection = found;
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
