#include "virtual_disks/wise_disk.h"

#include "common/assert.h"

namespace VirtualDisks {
namespace {

Common::Error Gone(const Common::ErrorSite& site) { return Common::MessageError(site, Vhdx::kInternalError); }

}  // namespace

VirtualMachineDisk* WiseDisk::Held() {
  VirtualMachineDisk* Ptr = disk_.Get();
  VR_ASSERT(Ptr != 0);
  return Ptr;
}

std::uint32_t WiseDisk::GetSectorSize() {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetSectorSize() : 0;
}

std::uint64_t WiseDisk::GetLastSector() {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetLastSector() : 0;
}

Fdisk::Geometry WiseDisk::GetGeometry() {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetGeometry() : Fdisk::Geometry{};
}

Common::Error WiseDisk::Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count, void* buffer) {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->Access(operation, sector, count, buffer) : Gone(VR_SITE);
}

Common::Error WiseDisk::GetPlatformHandle(void*& handle) {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetPlatformHandle(handle) : Gone(VR_SITE);
}

std::string WiseDisk::GetCurrentChangeID() {
  VirtualMachineDisk* disk = Held();
  if (!disk) throw Gone(VR_SITE);
  return disk->GetCurrentChangeID();
}

Common::Error WiseDisk::GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                          std::vector<Fdisk::Interval>& changed) {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetChangedSectors(id, area, changed) : Gone(VR_SITE);
}

std::uint32_t WiseDisk::GetDiskType() {
  VirtualMachineDisk* disk = Held();
  return disk ? disk->GetDiskType() : 0;
}

Common::Error WiseDiskWrapper::GetMetadataKeys(std::vector<MetadataKey>& keys) {
  keys.clear();
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

Common::Error WiseDiskWrapper::GetMetadata(const MetadataKey&, std::vector<std::uint8_t>&) {
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

Common::Error WiseDiskWrapper::HasMetadata(const MetadataKey&, bool& found) {
  found = false;
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

Common::Error WiseDiskWrapper::SetMetadata(const MetadataKey&, const std::vector<std::uint8_t>&) {
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

}  // namespace VirtualDisks
