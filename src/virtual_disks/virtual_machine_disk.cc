#include "virtual_disks/virtual_machine_disk.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace VirtualDisks {

VirtualDiskBase::VirtualDiskBase(std::unique_ptr<VirtualDiskImpl> impl)
    : impl_(std::move(impl)), diskType_(impl_->GetDiskType()) {
  sectorSize_ = impl_->GetSectorSize();
  lastSector_ = impl_->GetLastSector();
  geometry_ = impl_->GetGeometry();
}

Common::Error VirtualDiskBase::Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count,
                                      void* buffer) {
  if (operation == Fdisk::kAccessRead) return impl_->Read(sector, count, buffer);
  if (operation == Fdisk::kAccessWrite) return impl_->Write(sector, count, buffer);
  return Common::NoError;
}

Common::Error VirtualDiskBase::GetPlatformHandle(void*& handle) {
  handle = nullptr;
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

Common::Error VirtualDiskBase::GetChangedSectors(const std::string&, const Fdisk::Interval&,
                                                 std::vector<Fdisk::Interval>&) {
  return Common::MessageError(VR_SITE, Vhdx::kCodeNotImplemented);
}

MSVhdxVirtualMachineDisk::MSVhdxVirtualMachineDisk(std::unique_ptr<VhdxDiskImpl> impl)
    : VirtualDiskBase(std::move(impl)) {}

std::string MSVhdxVirtualMachineDisk::GetCurrentChangeID() { return Vhdx().GetCurrentChangeID(); }

Common::Error MSVhdxVirtualMachineDisk::GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                                          std::vector<Fdisk::Interval>& changed) {
  return Vhdx().GetChangedSectors(id, area, changed);
}

std::unique_ptr<VirtualMachineDisk> OpenVhdxDisk(rio_dir& dir, const std::u16string& name, std::uint32_t diskType,
                                                 FileTracker* tracker) {
  return std::make_unique<MSVhdxVirtualMachineDisk>(
      std::make_unique<VhdxDiskImpl>(&dir, &dir, name, diskType, tracker));
}

}  // namespace VirtualDisks
