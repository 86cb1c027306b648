// The hard disks of a machine that exists only in memory: DiskParameters
// describe one, DummyHDD hands one to a host (in the provider's collection), and the
// sector view (DummyVirtualMachineDisk) reads zeros and keeps the first
// sector, the boot record, in memory. Nothing here touches a file.
// Module-internal; DummyVM makes them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "processor/interface_impl.h"
#include "vellumrig/machine.h"

namespace VirtualWareRaw {

// One disk as the host described it; shared by every object of that disk,
// so that a boot sector written through one is seen through all.
struct DiskParameters {
  std::u16string Name;
  std::uint32_t BusType = 0;
  std::uint32_t BusId = 0;
  std::uint32_t Location = 0;
  std::uint32_t DiskType = 0;
  std::uint64_t Size = 0;  // bytes, whole sectors once checked
  std::uint32_t SectorSize = 0;
  std::uint8_t Heads = 0;  // the highest head number
  std::uint8_t SectorsPerTrack = 0;
  std::vector<std::uint8_t> MBR;  // SectorSize bytes
};

using DiskParametersPtr = std::shared_ptr<DiskParameters>;

// Sectors of a dummy disk: zeros, but for the boot record in the first.
class DummyVirtualMachineDisk final : public VirtualMachineDiskEx {
 public:
  explicit DummyVirtualMachineDisk(DiskParametersPtr params);

  Common::Error Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count,
                       void* buffer) override;
  Common::Error GetPlatformHandle(void*& handle) override;
  // A disk that is not a container keeps no changes and no metadata items.
  std::string GetCurrentChangeID() override { return {}; }
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed) override;
  std::uint32_t GetDiskType() override { return busCode_; }
  Common::Error GetMetadataKeys(std::vector<MetadataKey>& keys) override;
  Common::Error GetMetadata(const MetadataKey& key, std::vector<std::uint8_t>& bytes) override;
  Common::Error HasMetadata(const MetadataKey& key, bool& found) override;
  Common::Error SetMetadata(const MetadataKey& key, const std::vector<std::uint8_t>& bytes) override;

 private:
  DiskParametersPtr params_;
  std::uint32_t busCode_;
};

class DummyRawHardDisk final : public SafeRawHardDisk {
 public:
  explicit DummyRawHardDisk(DiskParametersPtr params) : params_(std::move(params)) {}

  Common::Error GetDisk(VirtualMachineDiskEx*& disk) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<SafeRawHardDisk>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<SafeRawHardDisk>::Instance();
  }

 private:
  DiskParametersPtr params_;
  std::unique_ptr<DummyVirtualMachineDisk> disk_;
};

class DummyHDD final : public SafeHardDisk {
 public:
  explicit DummyHDD(DiskParametersPtr params) : params_(std::move(params)) {}

  Common::Error GetFileName(Processor::String& file) override;
  Common::Error GetDiskType(std::uint32_t& type) override;
  Common::Error GetBusType(std::uint32_t& busType) override;
  Common::Error GetBusId(std::uint32_t& bus) override;
  Common::Error GetLocation(std::uint32_t& location) override;
  Common::Error GetRawDisk(Processor::AutoRef<SafeRawHardDisk>& raw) override;

  void GetInterface(Processor::InterfaceRef& out, std::uint32_t id) override {
    Processor::FindInterface<SafeHardDisk>(this, out, id);
  }
  Processor::MetaClass* GetMetaClass() override {
    return Processor::InterfaceMetaClass<SafeHardDisk>::Instance();
  }

 private:
  DiskParametersPtr params_;
  Processor::AutoRef<SafeRawHardDisk> raw_;
};

}  // namespace VirtualWareRaw
