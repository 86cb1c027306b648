#include "provider/machine.h"

#include <algorithm>
#include <string>

#include <unicode/uchar.h>

#include "common/assert.h"
#include "common/file_errors.h"
#include "common/resources/resource_module.h"
#include "common/site.h"
#include "common/trace.h"
#include "provider/disk_traits.h"
#include "provider/enumerations.h"
#include "provider/errors.h"
#include "provider/file_utilities.h"
#include "provider/from_string.h"
#include "provider/hard_disk.h"
#include "vellumrig/error_text.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "virtual_disks/virtual_machine_disk.h"

namespace VirtualWareRaw {
namespace {

constexpr char kRootTag[] = "preferences";
constexpr char kFirmwarePath[] = "preferences.hardware.firmware.value";
constexpr char kMemoryPath[] = "preferences.hardware.memory.ram_size";
constexpr char16_t kConfigExtension[] = u".vmc";

// The buses GetHardDisks looks at; a disk added beyond them stays in the
// file but is not listed.
struct BusLimits {
  std::uint32_t Buses;
  std::uint32_t Locations;
};

bool IsBusTypeSupported(std::uint32_t busType) { return busType == BusIDE || busType == BusSCSI; }

BusLimits LimitsOf(std::uint32_t busType) { return busType == BusIDE ? BusLimits{2, 2} : BusLimits{4, 15}; }

std::string ControllerPath(std::uint32_t busType) {
  VR_ASSERT(IsBusTypeSupported(busType));
  return busType == BusIDE ? "preferences.hardware.pci_bus.ide_adapter.ide_controller"
                           : "preferences.hardware.pci_bus.scsi_adapter.scsi_controller";
}

std::u16string Decimal(std::uint32_t value) { return Common::FromUtf8(std::to_string(value)); }

constexpr const char16_t* kPropertyNames[] = {u"ID",  u"Name",    u"FileName",   u"Memory",
                                              u"CPUs", u"GuestOS", u"PowerState", u"FirmwareType"};

// A name that would leave the storage folder, or name no file, is refused
// before anything is made or removed.
void RequireUsableName(const std::u16string& name) {
  if (name.empty() || name == u"." || name == u"..")
    throw Common::MessageError(VR_SITE, kInvalidVMName, {name});
}

// <safe name><separator><safe name>.vmc
std::u16string ConfigPath(const std::u16string& name, char16_t separator) {
  const std::u16string safe = SafeName(name);
  RequireUsableName(safe);
  return safe + separator + safe + kConfigExtension;
}

// Renames the folder `oldName` to `newName` in `parent`, then the file of
// the same name with `extension` inside it.
Common::Error RenameFolderAndFile(rio_dir& parent, const std::u16string& oldName,
                                  const std::u16string& newName, const std::u16string& extension) {
  parent.Rename(oldName, newName);
  if (Common::Error error = parent.TakeError()) return error;
  std::unique_ptr<rio_dir> folder = parent.OpenFolder(newName);
  if (!folder) return Common::NoError;
  folder->Rename(oldName + extension, newName + extension);
  Common::Error error = folder->TakeError();
  if (error.IsEmpty()) return error;
  // A folder renamed without its file is a machine nobody finds under
  // either name: the folder gets its old name back. Should that fail too,
  // the error says so behind the first.
  parent.Rename(newName, oldName);
  if (Common::Error undo = parent.TakeError()) error.AddReason(undo);
  return error;
}

}  // namespace

std::u16string SafeName(std::u16string name) {
  for (char16_t& c : name) {
    switch (c) {
      case u'\\': case u'/': case u':': case u'*': case u'?':
      case u'"': case u'<': case u'>': case u'|':
        c = u'_';
        break;
      default:
        break;
    }
  }
  return name;
}

Processor::AutoRef<SafeVM> CreateMSVPCVirtualMachine(rio_dir& root, const std::u16string& storage,
                                                     const std::u16string& name) {
  const std::u16string full = storage + root.Separator() + ConfigPath(name, root.Separator());
  const char16_t* last = full.c_str();
  std::unique_ptr<rio_dir> folder = root.OpenParentFolder(last);
  if (!folder) {
    // A folder that failed need not have moved the pointer: cut the last
    // component here.
    std::size_t cut = full.size();
    while (cut > 0 && !root.IsSeparator(full[cut - 1])) --cut;
    throw Wrap(VR_SITE, kStorageAccessFailed, {full.substr(0, cut)}, root.TakeError());
  }
  return Processor::MakeRef<SafeVM, MSVirtualPCVM>(*folder, std::u16string(last), true);
}

Common::Error CheckMSVPCVirtualMachineParameters(rio_dir& root, const std::u16string& storage,
                                                 const std::u16string& name) {
  try {
    std::unique_ptr<rio_dir> folder = root.OpenFolder(storage);
    if (!folder) return Wrap(VR_SITE, kStorageAccessFailed, {storage}, root.TakeError());
    const std::u16string full =
        storage + folder->Separator() + ConfigPath(name, folder->Separator());
    if (PathExists(root, full)) return Common::MessageError(VR_SITE, kVMAlreadyExists, {full});
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Processor::AutoRef<SafeVM> OpenMSVPCVirtualMachine(rio_dir& folder, const std::u16string& path) {
  return Processor::MakeRef<SafeVM, MSVirtualPCVM>(folder, path, false);
}

MSVirtualPCVM::MSVirtualPCVM(rio_dir& folder, const std::u16string& configPath, bool newMachine) {
  const char16_t* last = configPath.c_str();
  std::unique_ptr<rio_dir> dir = folder.OpenParentFolder(last);
  const std::u16string file(last);
  if (newMachine && dir && !dir->Self()) {
    // A failure here shows in the test below.
    CreateFolderChain(*dir);
  }
  const auto cannotOpen = [&configPath](const Common::ErrorSite& site) {
    return Common::Error::WithFileName(
        site, kMachineOpenFailed.Code,
        Common::FillPlaceholders(Common::MessageText(kMachineOpenFailed.Entry), {configPath}).c_str(),
        configPath.c_str());
  };
  if (!dir || !dir->Self()) throw cannotOpen(VR_SITE);
  dir->TakeError();
  if (!newMachine && !FileExists(*dir, file)) throw cannotOpen(VR_SITE);
  configFile_ = file;
  dir_ = std::move(dir);
  VR_ASSERT(!configFile_.empty());
  if (newMachine) {
    // Every new machine starts from the template in the module's own file;
    // there is no built-in copy to fall back on.
    std::unique_ptr<si_file> source = Common::OpenResourceFile(u"default.vmc");
    if (!source) {
      Common::Error error = Common::MessageError(VR_SITE, kTemplateNotFound);
      error.AddReason(Common::ResourcesUnavailable());
      throw error;
    }
    config_ = MakeConfigurationParser(source.get());
    dirty_ = true;
    FlushConfig();
  }
}

MSVirtualPCVM::~MSVirtualPCVM() { Close(); }

std::u16string MSVirtualPCVM::Path() { return dir_->FullPath() + configFile_; }

std::u16string MSVirtualPCVM::Name() const {
  return configFile_.size() > 4 ? configFile_.substr(0, configFile_.size() - 4) : configFile_;
}

ConfigurationParser& MSVirtualPCVM::LoadConfig() {
  if (config_) return *config_;
  std::unique_ptr<i_file> file = dir_->OpenFile(configFile_, kOpenRead);
  if (!file) {
    const std::u16string folder = dir_->FullPath();
    Common::Error error = Common::Error::WithFullPath(
        VR_SITE, kNoVMFound.Code,
        Common::FillPlaceholders(Common::MessageText(kNoVMFound.Entry), {folder, configFile_}).c_str(),
        folder.c_str(), configFile_.c_str());
    error.AddReason(dir_->TakeError());
    throw error;
  }
  config_ = MakeConfigurationParser(file.get());
  return *config_;
}

void MSVirtualPCVM::FlushConfig() {
  if (!dirty_) return;
  if (readOnly_) throw Common::MessageError(VR_SITE, kReadOnlyVMModified, {configFile_});
  if (!config_) return;
  // Rewritten in place, a configuration that meets a full disk half way
  // leaves no machine at all. The new text goes to a file beside it, is put
  // on disk, and only then takes the old one's place; on failure the old
  // file stands as it was and the new one goes.
  const std::u16string saving = configFile_ + u".saving";
  std::unique_ptr<rio_file> file = dir_->CreateFile(saving, 0, 0);
  if (!file) throw Wrap(VR_SITE, kCreateConfigFailed, {configFile_}, dir_->TakeError());
  const bool saved = config_->Save(*file, true);
  if (saved) file->Flush();
  Common::Error error = file->TakeError();
  if (!saved && error.IsEmpty()) error = Common::FileErrorOf(VR_SITE, FileError::Write);
  file.reset();
  if (error.IsEmpty()) error = ReplaceFile(*dir_, saving, configFile_);
  if (!error.IsEmpty()) {
    dir_->DeleteFile(saving);
    dir_->TakeError();
    throw Wrap(VR_SITE, kCreateConfigFailed, {configFile_}, error);
  }
}

void MSVirtualPCVM::RemoveHardDisks() {
  // Every machine file has this root; another XML file is refused here so
  // that removing a machine never deletes a file that is none.
  if (!LoadConfig().OpenChild(kRootTag, "", u"", false))
    throw Common::MessageError(VR_SITE, kNotAMachineFile, {Path()});
  Processor::AutoRef<SafeHardDiskCollection> disks;
  if (Common::Error error = GetHardDisks(disks)) throw error;
  std::uint32_t count = 0;
  disks->GetCount(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    Processor::AutoRef<SafeHardDisk> disk;
    std::uint32_t busType = 0, bus = 0, location = 0;
    disks->GetItem(i, disk);
    disk->GetBusType(busType);
    disk->GetBusId(bus);
    disk->GetLocation(location);
    if (Common::Error error = RemoveHardDisk(busType, bus, location, true)) throw error;
  }
}

std::uint32_t MSVirtualPCVM::GetFirmwareType() {
  std::u16string value;
  if (!LoadConfig().GetValue(kFirmwarePath, value)) throw Common::MessageError(VR_SITE, kFirmwareTypeFailed);
  if (value == u"efi") return FirmwareEfi;
  if (value != u"bios") VR_ASSERT(false && "unsupported firmware type value");
  return FirmwareBios;
}

void MSVirtualPCVM::SetFirmwareType(std::uint32_t value) {
  if (value != FirmwareEfi && value != FirmwareBios) VR_ASSERT(false && "unsupported firmware type value");
  SetStringValue(&LoadConfig(), kFirmwarePath, value == FirmwareEfi ? u"efi" : u"bios");
}

std::u16string MSVirtualPCVM::GetMemorySize() {
  std::u16string value;
  if (!LoadConfig().GetValue(kMemoryPath, value)) throw Common::MessageError(VR_SITE, kMemorySizeFailed);
  return value;
}

Common::Error MSVirtualPCVM::AddHardDisk(const Processor::String& file, std::uint32_t busType,
                                         std::uint32_t bus, std::uint32_t location, std::uint64_t size,
                                         std::uint32_t sectorSize, Processor::AutoRef<SafeHardDisk>& disk) {
  if (!IsBusTypeSupported(busType)) return Common::MessageError(VR_SITE, kDeviceInterfaceNotSupported);
  const std::u16string given = file.ToU16();
  const std::u16string name = AddSuffix(given, u".vhdx");
  VR_ASSERT(dir_ && configFile_.c_str());
  bool created = false;
  try {
    if (FileExists(*dir_, name)) return Common::MessageError(VR_SITE, kHardDiskFileExists, {given});
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::VirtualDiskAdded, {name, configFile_});
    if (!IsSlotFree(busType, bus, location)) return Common::MessageError(VR_SITE, kBusDeviceInUse);
    // The rules follow the name as given: "data.vhd" is checked as the
    // older format and still made as a VHDX container.
    const std::uint64_t sectors = CreateDiskTraits(given, busType)->GetSizeInSectors(size, sectorSize);
    created = true;
    if (Common::Error error = VirtualDisks::CreateVhdxDisk(*dir_, name, sectors, sectorSize, 3, 0)) throw error;
    if (Common::Error error = AddExistingHardDisk(Processor::String(name), busType, bus, location, 0, disk))
      throw error;
  } catch (const Common::Error& e) {
    if (!created) return e;
    VirtualDisks::DeleteVhdxDisk(*dir_, name);
    dir_->TakeError();
    Common::Error error = Wrap(VR_SITE, kAddHddFailed, {given, configFile_}, e);
    Common::TraceErrorValue(4, error);
    return error;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::AddExistingHardDisk(const Processor::String& file, std::uint32_t busType,
                                                 std::uint32_t bus, std::uint32_t location, std::uint64_t,
                                                 Processor::AutoRef<SafeHardDisk>& disk) {
  if (!IsBusTypeSupported(busType)) return Common::MessageError(VR_SITE, kDeviceInterfaceNotSupported);
  const std::u16string path = file.ToU16();
  VR_ASSERT(dir_ && configFile_.c_str());
  try {
    if (!FileExists(*dir_, path)) return Common::MessageError(VR_SITE, kHardDiskFileMissing, {path});
    if (!IsSlotFree(busType, bus, location)) return Common::MessageError(VR_SITE, kBusDeviceInUse);
    const char16_t* last = path.c_str();
    std::unique_ptr<rio_dir> folder = dir_->OpenParentFolder(last);
    dir_->TakeError();
    if (!folder) {
      return Common::MessageError(VR_SITE, kHardDiskNotFound,
                                  {path, Common::FromUtf8(std::to_string(bus)),
                                   Common::FromUtf8(std::to_string(location))});
    }
    const std::u16string name(last);
    std::unique_ptr<Configuration> controller =
        LoadConfig().OpenChild(ControllerPath(busType), "id", Decimal(bus), true);
    std::unique_ptr<Configuration> slot = controller->OpenChild("location", "id", Decimal(location), true);
    SetStringValue(slot.get(), "pathname.absolute", folder->FullPath() + name);
    SetStringValue(slot.get(), "pathname.relative", name);
    dirty_ = true;
    // The disk handed back is the file the host named. A file of the same
    // name beside the configuration would be another disk, and writes meant
    // for the named one must not land in it.
    disk = CreateMSVirtualPCHDD(folder.get(), name, busType, bus, location);
    FlushConfig();
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::RemoveHardDisk(std::uint32_t busType, std::uint32_t bus, std::uint32_t location,
                                            bool deleteFile) {
  if (!IsBusTypeSupported(busType)) return Common::MessageError(VR_SITE, kDeviceInterfaceNotSupported);
  try {
    const auto noDisk = [&] {
      return Common::MessageError(VR_SITE, kNoDiskAtLocation,
                                  {Common::FromUtf8(std::to_string(bus)), Common::FromUtf8(std::to_string(location))});
    };
    // A machine opened for reading could not write the file that still
    // names the disk: its file must not be deleted first.
    if (readOnly_) throw Common::MessageError(VR_SITE, kReadOnlyVMModified, {configFile_});
    std::unique_ptr<Configuration> controller =
        LoadConfig().OpenChild(ControllerPath(busType), "id", Decimal(bus), false);
    if (!controller) throw noDisk();
    std::unique_ptr<Configuration> slot = controller->OpenChild("location", "id", Decimal(location), false);
    if (!slot) throw noDisk();
    std::u16string path = RelativeDiskPath(*slot);
    if (path.empty() && (!slot->GetValue("pathname.absolute", path) || path.empty())) throw noDisk();
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::RemovingHardDisk, {path, configFile_});
    if (deleteFile) RefuseToDeleteAnythingButAContainer(path);
    slot->Remove();
    if (!controller->OpenChild("location", "", u"", false)) controller->Remove();
    dirty_ = true;
    if (deleteFile) {
      dir_->DeleteFile(path);
      if (Common::Error error = dir_->TakeError())
        throw Wrap(VR_SITE, kRemoveDiskFileFailed, {path}, error);
    }
    FlushConfig();
  } catch (const Common::Error& e) {
    Common::TraceErrorValue(4, e);
    return e;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::ResizeHardDisk(std::uint32_t, std::uint32_t, std::uint32_t, std::uint64_t) {
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error MSVirtualPCVM::GetHardDisks(Processor::AutoRef<SafeHardDiskCollection>& disks) {
  auto found = Processor::MakeRef<HardDiskCollection, HardDiskCollection>(kVMIndexInvalid);
  try {
    for (std::uint32_t busType : {BusIDE, BusSCSI}) {
      const BusLimits limits = LimitsOf(busType);
      for (std::uint32_t bus = 0; bus < limits.Buses; ++bus)
        for (std::uint32_t location = 0; location < limits.Locations; ++location)
          found->Add(OpenHardDisk(busType, bus, location));
    }
  } catch (const Common::Error& e) {
    return e;
  }
  disks = found;
  return Common::NoError;
}

Processor::AutoRef<SafeHardDisk> MSVirtualPCVM::OpenHardDisk(std::uint32_t busType, std::uint32_t bus,
                                                             std::uint32_t location) {
  std::unique_ptr<Configuration> controller =
      LoadConfig().OpenChild(ControllerPath(busType), "id", Decimal(bus), false);
  if (!controller) return {};
  std::unique_ptr<Configuration> slot = controller->OpenChild("location", "id", Decimal(location), false);
  if (!slot) return {};
  const std::u16string relative = RelativeDiskPath(*slot);
  if (!relative.empty()) return CreateMSVirtualPCHDD(dir_.get(), relative, busType, bus, location);
  std::u16string absolute;
  if (!slot->GetValue("pathname.absolute", absolute)) throw Common::MessageError(VR_SITE, kInvalidConfigFormat);
  const char16_t* last = absolute.c_str();
  std::unique_ptr<rio_dir> folder = dir_->OpenParentFolder(last);
  if (!folder) throw Wrap(VR_SITE, kHardDiskAccessFailed, {absolute}, dir_->TakeError());
  return CreateMSVirtualPCHDD(folder.get(), last, busType, bus, location);
}

std::u16string MSVirtualPCVM::RelativeDiskPath(Configuration& slot) {
  std::u16string path;
  if (!slot.GetValue("pathname.relative", path) || path.empty()) return {};
  if (path.size() > 2 && path[0] == u'.' && dir_->IsSeparator(path[1])) path.erase(0, 2);
  // Only a name that stays in the machine's folder counts: a relative value
  // that climbs out ("../x") or is a whole path would reach a file that is
  // not the machine's, and deleting the disk would delete it.
  if (path.empty() || path == u".." || std::any_of(path.begin(), path.end(), [&](char16_t c) {
        return dir_->IsSeparator(c);
      }))
    return {};
  return FileExists(*dir_, path) ? path : std::u16string();
}

void MSVirtualPCVM::RefuseToDeleteAnythingButAContainer(const std::u16string& path) {
  // A configuration is text anyone may have written: its path may name any
  // file at all. Only a file that begins as a container is deleted as a
  // disk; one that is not there is left to the delete to report.
  std::unique_ptr<i_file> file = dir_->OpenFile(path, kOpenRead);
  dir_->TakeError();
  if (!file) return;
  char signature[sizeof Vhdx::Format::kFileIdentifierSignature] = {};
  const std::size_t got = file->Read(signature, sizeof signature);
  file->TakeError();
  if (got != sizeof signature ||
      !std::equal(std::begin(signature), std::end(signature), std::begin(Vhdx::Format::kFileIdentifierSignature)))
    throw Wrap(VR_SITE, kRemoveDiskFileFailed, {path}, Common::MessageError(VR_SITE, Vhdx::kUnknownFormat));
}

bool MSVirtualPCVM::IsSlotFree(std::uint32_t busType, std::uint32_t bus, std::uint32_t location) {
  std::unique_ptr<Configuration> controller =
      LoadConfig().OpenChild(ControllerPath(busType), "id", Decimal(bus), false);
  return !controller || !controller->OpenChild("location", "id", Decimal(location), false);
}

Common::Error MSVirtualPCVM::GetProperty(const wstring& name, std::vector<wstring>&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCVM::GetProperty(const wstring& name, wstring& value) {
  try {
    if (name == u"ID" || name == u"FileName") value = Path();
    else if (name == u"Name") value = Name();
    else if (name == u"FirmwareType") value = Common::FromUtf8(std::to_string(GetFirmwareType()));
    else if (name == u"Memory") value = GetMemorySize();
    else if (name == u"CPUs") value = u"1";  // one processor, whatever was asked
    else if (name == u"GuestOS") value = GuestOSToString(0);
    else if (name == u"PowerState") value = PowerStateToString(PowerUnknown);
    else return PropertyNotSupported(VR_SITE, name);
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::SetProperty(const wstring& name, const std::vector<wstring>&) {
  return PropertyNotSupported(VR_SITE, name);
}

Common::Error MSVirtualPCVM::SetProperty(const wstring& name, const wstring& value) {
  if (name == u"Name") return Rename(value);
  try {
    if (name == u"Memory") {
      // Bytes in, megabytes stored (and read back).
      SetIntegerValue(&LoadConfig(), kMemoryPath, static_cast<std::uint32_t>(FromStringU64(value) >> 20));
      dirty_ = true;
    } else if (name == u"FirmwareType") {
      SetFirmwareType(FromStringU32(value));
      dirty_ = true;
    } else if (name == u"CPUs") {
      if (FromStringU32(value) == 1) {
        dirty_ = true;
      } else {
        // The machine keeps one processor; the wish is logged, not refused.
        Common::TraceErrorValue(1, PropertyNotSupported(VR_SITE, name));
      }
    } else {
      return PropertyNotSupported(VR_SITE, name);
    }
  } catch (const Common::Error& e) {
    Common::Error error = Wrap(VR_SITE, kSetPropertyFailed, {name, value}, e);
    Common::TraceErrorValue(4, error);
    return error;
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::GetPropertyNames(std::vector<wstring>& names) {
  names.assign(std::begin(kPropertyNames), std::end(kPropertyNames));
  return Common::NoError;
}

Common::Error MSVirtualPCVM::Rename(const std::u16string& newName) {
  const std::u16string oldName = Name();
  const std::u16string safe = SafeName(newName);
  try {
    RequireUsableName(safe);
    if (Processor::String(oldName).caseCompare(Processor::String(safe), U_FOLD_CASE_DEFAULT) == 0)
      return Common::NoError;
    FlushConfig();
    std::unique_ptr<rio_dir> parent = dir_->OpenFolder(u"..");
    VerifyFileObject(*dir_, parent.get());
    // The rename goes by name: a machine whose folder is named otherwise
    // would move a sibling folder that happens to bear the machine's name.
    std::unique_ptr<rio_dir> named = parent->OpenFolder(oldName);
    parent->TakeError();
    if (!named || named->IsSameFolder(*dir_) != 1)
      throw Common::MessageError(VR_SITE, kFolderNamedOtherwise, {dir_->FullPath(), oldName});
    if (Common::Error error = RenameFolderAndFile(*parent, oldName, safe, kConfigExtension)) throw error;
    std::unique_ptr<rio_dir> renamed = parent->OpenFolder(safe);
    VerifyFileObject(*parent, renamed.get());
    dir_ = std::move(renamed);
    configFile_ = AddSuffix(safe, kConfigExtension);
    config_.reset();  // parsed again, from the renamed file, at next use
  } catch (const Common::Error& e) {
    return Wrap(VR_SITE, kRenameVMFailed, {oldName, safe}, e);
  }
  return Common::NoError;
}

Common::Error MSVirtualPCVM::Open(std::uint32_t accessMode) {
  readOnly_ = (accessMode & SafeVMAccess::WriteAccess) == 0;
  return Common::NoError;
}

Common::Error MSVirtualPCVM::Close() {
  try {
    Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::ClosingVM, {configFile_});
    FlushConfig();
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

void MSVirtualPCVM::GetInterface(Processor::InterfaceRef& out, std::uint32_t id) {
  Processor::FindInterface<SafeVM, PropertySet, SafeVMAccess>(this, out, id);
}

Processor::MetaClass* MSVirtualPCVM::GetMetaClass() {
  return Processor::InterfaceMetaClass<SafeVM>::Instance();
}

}  // namespace VirtualWareRaw
