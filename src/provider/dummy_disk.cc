#include "provider/dummy_disk.h"

#include <cstring>

#include "common/assert.h"
#include "common/site.h"
#include "provider/disk_traits.h"
#include "provider/errors.h"

namespace VirtualWareRaw {
DummyVirtualMachineDisk::DummyVirtualMachineDisk(DiskParametersPtr params)
    : params_(std::move(params)), busCode_(FdiskBusCode(params_->BusType)) {
  VR_ASSERT(params_->MBR.size() == params_->SectorSize);
  sectorSize_ = params_->SectorSize;
  const std::uint64_t sectors = sectorSize_ ? params_->Size / sectorSize_ : 0;
  lastSector_ = sectors ? sectors - 1 : 0;
  geometry_.MaxHead = params_->Heads;
  geometry_.SectorsPerTrack = params_->SectorsPerTrack;
  if (params_->SectorsPerTrack != 0)
    geometry_.Cylinders = static_cast<std::uint32_t>(lastSector_ / (params_->Heads + 1u) / params_->SectorsPerTrack);
}

Common::Error DummyVirtualMachineDisk::Access(std::uint32_t operation, std::uint64_t sector,
                                              std::uint64_t count, void* buffer) {
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  // The range test is not strict: the last sector itself cannot be read,
  // and hosts rely on exactly that bound.
  if (operation == Fdisk::kAccessRead && buffer && count < lastSector_ && sector < lastSector_ - count) {
    std::memset(bytes, 0, count * sectorSize_);
    // A read of no sectors has no room for the boot record.
    if (sector == 0 && count != 0) std::memcpy(bytes, params_->MBR.data(), sectorSize_);
    return Common::NoError;
  }
  if (operation == Fdisk::kAccessWrite && buffer && sector == 0) {
    // Only the boot record is kept, however many sectors were written.
    std::memcpy(params_->MBR.data(), bytes, sectorSize_);
    return Common::NoError;
  }
  return Common::MessageError(VR_SITE, kHardDiskAccessFailed, {params_->Name + u"_dummy"});
}

Common::Error DummyVirtualMachineDisk::GetPlatformHandle(void*& handle) {
  handle = nullptr;
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error DummyVirtualMachineDisk::GetChangedSectors(const std::string&, const Fdisk::Interval&,
                                                         std::vector<Fdisk::Interval>& changed) {
  changed.clear();
  return Common::NoError;
}

Common::Error DummyVirtualMachineDisk::GetMetadataKeys(std::vector<MetadataKey>& keys) {
  keys.clear();
  return Common::NoError;
}

Common::Error DummyVirtualMachineDisk::GetMetadata(const MetadataKey&, std::vector<std::uint8_t>&) {
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error DummyVirtualMachineDisk::HasMetadata(const MetadataKey&, bool& found) {
  found = false;
  return Common::NoError;
}

Common::Error DummyVirtualMachineDisk::SetMetadata(const MetadataKey&, const std::vector<std::uint8_t>&) {
  return Common::MessageError(VR_SITE, kNotImplemented);
}

Common::Error DummyRawHardDisk::GetDisk(VirtualMachineDiskEx*& disk) {
  try {
    if (!disk_) disk_ = std::make_unique<DummyVirtualMachineDisk>(params_);
  } catch (const Common::Error& e) {
    Common::Error outer = Common::MessageError(VR_SITE, kHardDiskAccessFailed, {params_->Name});
    outer.AddReason(e);
    return outer;
  }
  disk = disk_.get();
  return Common::NoError;
}

Common::Error DummyHDD::GetFileName(Processor::String& file) {
  file = Processor::String(params_->Name);
  return Common::NoError;
}

Common::Error DummyHDD::GetDiskType(std::uint32_t& type) {
  type = params_->DiskType;
  return Common::NoError;
}

Common::Error DummyHDD::GetBusType(std::uint32_t& busType) {
  busType = params_->BusType;
  return Common::NoError;
}

Common::Error DummyHDD::GetBusId(std::uint32_t& bus) {
  bus = params_->BusId;
  return Common::NoError;
}

Common::Error DummyHDD::GetLocation(std::uint32_t& location) {
  location = params_->Location;
  return Common::NoError;
}

Common::Error DummyHDD::GetRawDisk(Processor::AutoRef<SafeRawHardDisk>& raw) {
  if (!raw_) raw_ = Processor::MakeRef<SafeRawHardDisk, DummyRawHardDisk>(params_);
  raw = raw_;
  return Common::NoError;
}

}  // namespace VirtualWareRaw
