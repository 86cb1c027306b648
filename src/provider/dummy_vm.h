// Machines that exist only in memory. A host makes one through
// ObjectManager before any real machine exists, describes it through SafeVM
// and PropertySet, and lets the provider check the description: storage
// reachable, name free, disk sizes legal. Nothing touches a file. A link
// later tells the provider which real machine the dummy became.
//
// DummyVMSupport keeps the dummies and links; MSVPCDummyVMSupport is its one
// instance in the process, reached by the server. Module-internal.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "processor/singleton.h"
#include "processor/weak.h"
#include "provider/dummy_disk.h"
#include "vellumrig/folder.h"
#include "vellumrig/machine.h"
#include "vellumrig/server.h"

namespace VirtualWareRaw {

struct VMParameters {
  std::u16string Name;
  std::u16string Storage;
  std::u16string Login;
  std::u16string Password;
};

class DummyVM;

class DummyVMSupport : public ObjectManager {
 public:
  virtual std::uint32_t GetServerType() = 0;
  // Checks a disk's size and sector size, then fills in its geometry and
  // its size rounded down to whole sectors.
  virtual Common::Error CheckAndFillDiskParameters(DiskParameters& parameters) = 0;
  // Whether a machine of that name could be made in that storage.
  virtual Common::Error CheckVMParameters(const VMParameters& parameters) = 0;

  // "VirtualMachine" makes a dummy and gives its new identifier; a
  // <link><alias/><id/></link> text retires the dummy `alias` in favour of
  // the real machine `id`.
  Common::Error CreateObject(const wstring& typeOrXml, wstring& id) override;
  Common::Error GetObject(const wstring& id, Processor::AutoRef<PropertySet>& object) override;

  // A dummy by its identifier, or through a link the machine `workstation`
  // opens. An identifier that is neither fails quietly, so that the server
  // goes on to the file system.
  Common::Error GetRegisteredVM(VirtualWorkstation* workstation, const wstring& id,
                                const Common::Credentials& credentials,
                                Processor::AutoRef<SafeVM>& vm);
  // Forgets a dummy; links stay.
  Common::Error RemoveVM(const wstring& id);

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override;
  Processor::MetaClass* GetMetaClass() override;

 private:
  Common::Error CreateLink(const wstring& xml);

  Common::Mutex lock_;  // guards both maps; never held over a call out
  std::map<std::u16string, Processor::AutoRef<DummyVM>> machines_;
  std::map<std::u16string, std::u16string> links_;  // alias to real identifier
};

class MSVPCDummyVMSupport final : public Processor::Singleton<MSVPCDummyVMSupport, DummyVMSupport> {
 public:
  ~MSVPCDummyVMSupport() override;

  // The first root handed over stays for the instance's life: a later
  // server with another root shares this instance.
  void SetRootOnce(const std::shared_ptr<rio_dir>& root);

  std::uint32_t GetServerType() override { return SERVER_TYPE_MS_VIRTUAL_PC; }
  Common::Error CheckAndFillDiskParameters(DiskParameters& parameters) override;
  Common::Error CheckVMParameters(const VMParameters& parameters) override;

 private:
  Common::Mutex rootLock_;
  std::shared_ptr<rio_dir> root_;
};

class DummyVM final : public SafeVM, public PropertySet {
 public:
  explicit DummyVM(DummyVMSupport* support);

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

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override;
  Processor::MetaClass* GetMetaClass() override;

 private:
  // A host may keep a dummy after the support instance is gone: the weak
  // reference then reads empty instead of pointing at freed memory.
  Processor::WeakRef<DummyVMSupport> support_;
  std::map<std::u16string, std::u16string> properties_;
  std::vector<DiskParametersPtr> disks_;
};

}  // namespace VirtualWareRaw
