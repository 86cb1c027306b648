// MSVirtualPCVM: one machine, a folder object and the name of its .vmc file
// in it. Module-internal; hosts see it as SafeVM, PropertySet and
// SafeVMAccess.
//
// For a machine "Web" in storage "/vms" the folder is "/vms/Web" and the
// file "/vms/Web/Web.vmc"; that whole path is the machine's ID. The file is
// parsed at the first key access and written whole at each flush. A
// machine takes no lock: one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "processor/interface_impl.h"
#include "provider/configuration.h"
#include "vellumrig/folder.h"
#include "vellumrig/machine.h"
#include "vellumrig/server.h"

namespace VirtualWareRaw {

// The name with each of \ / : * ? " < > | made "_".
std::u16string SafeName(std::u16string name);

// Makes a machine `name` in `storage` (resolved on `root`): its folder, its
// file from the template. Throws on failure.
Processor::AutoRef<SafeVM> CreateMSVPCVirtualMachine(rio_dir& root, const std::u16string& storage,
                                                     const std::u16string& name);
// Whether such a machine could be made, without writing anything.
Common::Error CheckMSVPCVirtualMachineParameters(rio_dir& root, const std::u16string& storage,
                                                 const std::u16string& name);
// Opens the machine whose .vmc file is at `path` (absolute, or relative to
// `folder`). Throws when the file is not there.
Processor::AutoRef<SafeVM> OpenMSVPCVirtualMachine(rio_dir& folder, const std::u16string& path);

class MSVirtualPCVM final : public SafeVM, public PropertySet, public SafeVMAccess {
 public:
  // `configPath` is a whole path or a bare file name, resolved on `folder`;
  // the machine keeps its own folder object, not `folder`.
  MSVirtualPCVM(rio_dir& folder, const std::u16string& configPath, bool newMachine);
  ~MSVirtualPCVM() override;

  // SafeVM
  Common::Error AddHardDisk(const Processor::String& file, std::uint32_t busType, std::uint32_t bus,
                            std::uint32_t location, std::uint64_t size, std::uint32_t sectorSize,
                            Processor::AutoRef<SafeHardDisk>& disk) override;
  Common::Error AddExistingHardDisk(const Processor::String& file, std::uint32_t busType,
                                    std::uint32_t bus, std::uint32_t location, std::uint64_t unused,
                                    Processor::AutoRef<SafeHardDisk>& disk) override;
  Common::Error RemoveHardDisk(std::uint32_t busType, std::uint32_t bus, std::uint32_t location,
                               bool deleteFile) override;
  Common::Error ResizeHardDisk(std::uint32_t busType, std::uint32_t bus, std::uint32_t location,
                               std::uint64_t size) override;
  Common::Error GetHardDisks(Processor::AutoRef<SafeHardDiskCollection>& disks) override;

  // PropertySet
  Common::Error GetProperty(const wstring& name, std::vector<wstring>& values) override;
  Common::Error GetProperty(const wstring& name, wstring& value) override;
  Common::Error SetProperty(const wstring& name, const std::vector<wstring>& values) override;
  Common::Error SetProperty(const wstring& name, const wstring& value) override;
  Common::Error GetPropertyNames(std::vector<wstring>& names) override;

  // SafeVMAccess
  Common::Error Open(std::uint32_t accessMode) override;
  Common::Error Close() override;

  // Interface
  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override;
  Processor::MetaClass* GetMetaClass() override;

  // The folder's full path and the file name, joined.
  std::u16string Path();

  // The first step of removing the machine: its hard disks go, with their
  // files, in the order GetHardDisks lists them. Throws, having deleted
  // nothing, when the configuration does not parse or is no machine's: the
  // disks are unknown then, and the file may not be a machine at all.
  void RemoveHardDisks();

 private:
  bool IsSlotFree(std::uint32_t busType, std::uint32_t bus, std::uint32_t location);
  // Throws 0x53004A when `path` is there but is no container.
  void RefuseToDeleteAnythingButAContainer(const std::u16string& path);
  // The disk in a slot; null when the slot is empty.
  Processor::AutoRef<SafeHardDisk> OpenHardDisk(std::uint32_t busType, std::uint32_t bus, std::uint32_t location);
  // The slot's relative name, "./" taken off, when that file is beside the
  // configuration; else empty.
  std::u16string RelativeDiskPath(Configuration& slot);
  ConfigurationParser& LoadConfig();
  void FlushConfig();
  std::uint32_t GetFirmwareType();
  void SetFirmwareType(std::uint32_t value);
  std::u16string GetMemorySize();
  std::u16string Name() const;
  Common::Error Rename(const std::u16string& newName);

  std::u16string configFile_;
  std::unique_ptr<rio_dir> dir_;
  std::unique_ptr<ConfigurationParser> config_;
  bool readOnly_ = false;
  bool dirty_ = false;
};

}  // namespace VirtualWareRaw
