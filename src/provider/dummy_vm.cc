#include "provider/dummy_vm.h"

#include <algorithm>

#include "common/assert.h"
#include "common/site.h"
#include "common/trace.h"
#include "processor/guid_text.h"
#include "processor/interface_impl.h"
#include "provider/disk_traits.h"
#include "provider/errors.h"
#include "provider/file_utilities.h"
#include "provider/hard_disk.h"
#include "provider/machine.h"
#include "provider/xml_helpers.h"
#include "virtual_disks/disk_parameters.h"
#include "virtual_disks/geometry.h"

namespace VirtualWareRaw {
namespace {

constexpr ErrorMessage kCreateObjectFailed{0x530079, Msg::CreateObjectFailed};
constexpr ErrorMessage kObtainObjectFailed{0x53007A, Msg::ObtainObjectFailed};
constexpr ErrorMessage kRegisteredVMNotFound{0x530016, Msg::RegisteredVMNotFound};
constexpr ErrorMessage kHddByAddressNotFound{0x530064, Msg::HddByAddressNotFound};
constexpr ErrorMessage kDummyCollectionIndex{0x530023, Msg::CollectionIndex};

// The aliases this thread is resolving right now. A link may lead to a
// further link; one that leads back to an alias being resolved would
// otherwise recurse until the stack runs out.
thread_local std::vector<std::u16string> resolving;

struct ResolvingGuard {
  explicit ResolvingGuard(const std::u16string& alias) { resolving.push_back(alias); }
  ~ResolvingGuard() { resolving.pop_back(); }
};

bool IsResolving(const std::u16string& alias) {
  return std::find(resolving.begin(), resolving.end(), alias) != resolving.end();
}

}  // namespace

// --- the registry -------------------------------------------------------------

Common::Error DummyVMSupport::CreateObject(const wstring& typeOrXml, wstring& id) {
  if (typeOrXml != u"VirtualMachine") return CreateLink(typeOrXml);
  try {
    auto vm = Processor::MakeRef<DummyVM, DummyVM>(this);
    wstring newId;
    if (Common::Error error = vm->GetProperty(u"ID", newId)) throw error;
    if (!VR_ASSERT(!newId.empty())) throw Common::MessageError(VR_SITE, kInternalError);
    {
      Common::MutexGuard guard(lock_);
      machines_[newId] = vm;
    }
    id = newId;
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kCreateObjectFailed, {}, e);
  }
  return Common::NoError;
}

Common::Error DummyVMSupport::CreateLink(const wstring& xml) {
  std::unique_ptr<Xml::Tag> root;
  // A text that does not parse is simply no link.
  if (UnserializeXML(xml, root) || !root || root->Name != "link")
    return Common::MessageError(VR_SITE, kCreateObjectFailed);
  const Xml::Tag* aliasTag = root->FindChild("alias");
  const Xml::Tag* idTag = root->FindChild("id");
  if (!VR_ASSERT(aliasTag && idTag)) return Common::MessageError(VR_SITE, kCreateObjectFailed);
  const std::u16string alias = aliasTag->GetText();
  const std::u16string target = idTag->GetText();
  if (!VR_ASSERT(!alias.empty() && !target.empty())) return Common::MessageError(VR_SITE, kCreateObjectFailed);
  Common::MutexGuard guard(lock_);
  machines_.erase(alias);
  links_[alias] = target;
  return Common::NoError;
}

Common::Error DummyVMSupport::GetObject(const wstring& id, Processor::AutoRef<PropertySet>& object) {
  Common::MutexGuard guard(lock_);
  const auto found = machines_.find(id);
  if (found == machines_.end()) return Common::MessageError(VR_SITE, kObtainObjectFailed, {id});
  object = found->second;
  return Common::NoError;
}

Common::Error DummyVMSupport::GetRegisteredVM(VirtualWorkstation* workstation, const wstring& id,
                                              const Common::Credentials& credentials,
                                              Processor::AutoRef<SafeVM>& vm) {
  if (!VR_ASSERT(workstation)) return Common::MessageError(VR_SITE, kInternalError);
  std::u16string target;
  {
    Common::MutexGuard guard(lock_);
    if (const auto found = machines_.find(id); found != machines_.end()) {
      vm = found->second;
      return Common::NoError;
    }
    const auto link = links_.find(id);
    if (link == links_.end() || IsResolving(id)) return Common::MessageError(VR_SITE, kRegisteredVMNotFound);
    target = link->second;
  }
  // The lock is not held over the call: the target may itself be a link.
  ResolvingGuard guard(id);
  return workstation->GetRegisteredVM(target, credentials, vm);
}

Common::Error DummyVMSupport::RemoveVM(const wstring& id) {
  Common::MutexGuard guard(lock_);
  if (machines_.erase(id) == 0) return Common::MessageError(VR_SITE, kDeleteVMFailed);
  return Common::NoError;
}

void DummyVMSupport::GetInterface(Processor::InterfaceRef& out, std::uint32_t id) {
  Processor::FindInterface<ObjectManager>(this, out, id);
}

Processor::MetaClass* DummyVMSupport::GetMetaClass() {
  return Processor::InterfaceMetaClass<ObjectManager>::Instance();
}

// --- the provider's rules -------------------------------------------------------

MSVPCDummyVMSupport::~MSVPCDummyVMSupport() {
  Common::TraceMessage(1, Common::kProviderTraceModule, 0, Msg::DummySupportDeleted, {});
}

void MSVPCDummyVMSupport::SetRootOnce(const std::shared_ptr<rio_dir>& root) {
  Common::MutexGuard guard(rootLock_);
  if (!root_) root_ = root;
}

Common::Error MSVPCDummyVMSupport::CheckVMParameters(const VMParameters& parameters) {
  std::shared_ptr<rio_dir> root;
  {
    Common::MutexGuard guard(rootLock_);
    root = root_;
  }
  if (!root) return Common::MessageError(VR_SITE, kInternalError);
  if (!parameters.Storage.empty() && !parameters.Login.empty())
    SetAccessCredentialsHelper(*root, parameters.Storage, {parameters.Login, parameters.Password});
  return CheckMSVPCVirtualMachineParameters(*root, parameters.Storage, parameters.Name);
}

Common::Error MSVPCDummyVMSupport::CheckAndFillDiskParameters(DiskParameters& parameters) {
  if (parameters.SectorSize == 0) return Common::MessageError(VR_SITE, kInvalidSectorSize);
  // Rounded down, where a real machine's disk rounds up.
  const std::uint64_t sectors = parameters.Size / parameters.SectorSize;
  if (Common::Error error = VirtualDisks::CheckVhdxDiskParameters(sectors, parameters.SectorSize))
    return error;
  const Fdisk::Geometry geometry = VirtualDisks::ComputeGeometry(FdiskBusCode(parameters.BusType), sectors);
  parameters.Heads = geometry.MaxHead;
  parameters.SectorsPerTrack = geometry.SectorsPerTrack;
  parameters.DiskType = 0;
  parameters.Size = sectors * parameters.SectorSize;
  return Common::NoError;
}

// --- one dummy machine ------------------------------------------------------------

DummyVM::DummyVM(DummyVMSupport* support) : support_(support) {
  Processor::String id;
  Processor::GenerateGuid(id);
  properties_[u"ID"] = id.ToU16();
}

Common::Error DummyVM::AddHardDisk(const Processor::String& file, std::uint32_t busType,
                                   std::uint32_t bus, std::uint32_t location, std::uint64_t size,
                                   std::uint32_t sectorSize, Processor::AutoRef<SafeHardDisk>& disk) {
  try {
    Processor::AutoRef<DummyVMSupport> support = support_.Lock();
    if (!VR_ASSERT(support)) throw Common::MessageError(VR_SITE, kInternalError);
    auto parameters = std::make_shared<DiskParameters>();
    parameters->Name = file.ToU16();
    parameters->BusType = busType;
    parameters->BusId = bus;
    parameters->Location = location;
    parameters->Size = size;
    parameters->SectorSize = sectorSize;
    if (Common::Error error = support->CheckAndFillDiskParameters(*parameters)) throw error;
    parameters->MBR.assign(parameters->SectorSize, 0);
    // The slot is not checked: a description may put two disks on one.
    disk = Processor::MakeRef<SafeHardDisk, DummyHDD>(parameters);
    disks_.push_back(parameters);
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error DummyVM::AddExistingHardDisk(const Processor::String&, std::uint32_t, std::uint32_t,
                                           std::uint32_t, std::uint64_t, Processor::AutoRef<SafeHardDisk>&) {
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error DummyVM::RemoveHardDisk(std::uint32_t busType, std::uint32_t bus, std::uint32_t location, bool) {
  const auto before = disks_.size();
  std::erase_if(disks_, [&](const DiskParametersPtr& p) {
    return p->BusType == busType && p->BusId == bus && p->Location == location;
  });
  if (disks_.size() == before) return Common::MessageError(VR_SITE, kHddByAddressNotFound);
  return Common::NoError;
}

Common::Error DummyVM::ResizeHardDisk(std::uint32_t, std::uint32_t, std::uint32_t, std::uint64_t) {
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error DummyVM::GetHardDisks(Processor::AutoRef<SafeHardDiskCollection>& disks) {
  // A copy of the list as it stands; its disk objects share their
  // parameters with the machine's.
  auto list = Processor::MakeRef<HardDiskCollection, HardDiskCollection>(kDummyCollectionIndex);
  for (const DiskParametersPtr& parameters : disks_) list->Add(Processor::MakeRef<SafeHardDisk, DummyHDD>(parameters));
  disks = list;
  return Common::NoError;
}

Common::Error DummyVM::GetProperty(const wstring& name, std::vector<wstring>&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error DummyVM::GetProperty(const wstring& name, wstring& value) {
  const auto found = properties_.find(name);
  if (found == properties_.end()) return PropertyNotSupported(VR_SITE, name);
  value = found->second;
  return Common::NoError;
}

Common::Error DummyVM::SetProperty(const wstring& name, const std::vector<wstring>&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error DummyVM::SetProperty(const wstring& name, const wstring& value) {
  if (name == u"ID") return PropertyNotSupported(VR_SITE, name);
  // Name and Storage are checked as a pair, whichever of them comes second.
  const bool checked = (name == u"Name" && properties_.count(u"Storage")) ||
                       (name == u"Storage" && properties_.count(u"Name"));
  if (checked) {
    Processor::AutoRef<DummyVMSupport> support = support_.Lock();
    if (!VR_ASSERT(support)) return Common::MessageError(VR_SITE, kInternalError);
    // Login and Password are entered empty when missing, so a check lists
    // them from then on; the property being set stays as it was on failure.
    VMParameters parameters{name == u"Name" ? value : properties_.at(u"Name"),
                            name == u"Storage" ? value : properties_.at(u"Storage"),
                            properties_[u"Login"], properties_[u"Password"]};
    if (Common::Error error = support->CheckVMParameters(parameters)) return error;
  }
  properties_[name] = value;
  return Common::NoError;
}

Common::Error DummyVM::GetPropertyNames(std::vector<wstring>& names) {
  names.clear();
  for (const auto& [name, value] : properties_) names.push_back(name);
  return Common::NoError;
}

void DummyVM::GetInterface(Processor::InterfaceRef& out, std::uint32_t id) {
  Processor::FindInterface<SafeVM, PropertySet>(this, out, id);
}

Processor::MetaClass* DummyVM::GetMetaClass() { return Processor::InterfaceMetaClass<SafeVM>::Instance(); }

}  // namespace VirtualWareRaw
