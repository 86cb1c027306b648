#include "virtual_disks/virtual_machine_disk.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk_deleter.h"
#include "vhdx/format/errors.h"
#include "virtual_disks/raw_metadata.h"

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

MSVhdxVirtualMachineDiskEx::MSVhdxVirtualMachineDiskEx(std::unique_ptr<MSVhdxVirtualMachineDisk> disk)
    : VirtualMachineDiskExBase(std::move(disk)) {}

Common::Error MSVhdxVirtualMachineDiskEx::GetMetadataKeys(std::vector<MetadataKey>& keys) {
  std::vector<Vhdx::MetadataDescriptor> descriptors;
  Common::Error error = Impl().Run([&](Vhdx::Disk& disk) {
    MetadataDescriptorsCollector collector(descriptors);
    disk.EnumerateMetadata(collector);
  });
  if (error) return error;
  keys.clear();
  for (const Vhdx::MetadataDescriptor& descriptor : descriptors) keys.push_back(KeyOf(descriptor));
  return Common::NoError;
}

Common::Error MSVhdxVirtualMachineDiskEx::GetMetadata(const MetadataKey& key, std::vector<std::uint8_t>& bytes) {
  return Impl().Run([&](Vhdx::Disk& disk) {
    const Vhdx::MetadataDescriptor wanted = DescriptorOf(key);
    RawMetadataConsumer consumer(wanted, bytes);
    // Only the wanted item reaches the consumer; the others pass by.
    Vhdx::DispatchingComposite dispatch(std::make_unique<Vhdx::IgnoreUnhandledMetadata>());
    dispatch.Add(std::make_shared<Vhdx::MetadataConsumerDelegate>(consumer));
    disk.EnumerateMetadata(dispatch);
    if (!consumer.Taken())
      throw Common::MessageError(VR_SITE, Vhdx::kMetadataNotFound,
                                 {Vhdx::MetadataIdText(wanted), Vhdx::MetadataFlagsText(wanted)});
  });
}

Common::Error MSVhdxVirtualMachineDiskEx::HasMetadata(const MetadataKey& key, bool& found) {
  found = false;
  Vhdx::MetadataDescriptor wanted;
  if (!TryDescriptorOf(key, wanted)) return Common::NoError;
  return Impl().Run([&](Vhdx::Disk& disk) {
    CheckingMetadataConsumer checking(wanted);
    disk.EnumerateMetadata(checking);
    found = checking.Found();
  });
}

Common::Error MSVhdxVirtualMachineDiskEx::SetMetadata(const MetadataKey& key, const std::vector<std::uint8_t>& bytes) {
  return Impl().Run([&](Vhdx::Disk& disk) {
    SettingMetadataProvider provider(DescriptorOf(key), bytes);
    disk.SetMetadata(provider);
  });
}

std::unique_ptr<VirtualMachineDiskEx> OpenVhdxDisk(rio_dir& dir, const std::u16string& name,
                                                   std::uint32_t diskType, FileTracker* tracker,
                                                   Common::Error* openError) {
  auto impl = std::make_unique<VhdxDiskImpl>(&dir, &dir, name, diskType, tracker);
  if (openError) *openError = impl->LastError();
  return std::make_unique<MSVhdxVirtualMachineDiskEx>(std::make_unique<MSVhdxVirtualMachineDisk>(std::move(impl)));
}

Common::Error CreateVhdxDisk(rio_dir& dir, const std::u16string& name, std::uint64_t sectors, std::uint32_t,
                             std::uint32_t, std::uint32_t options) {
  // A count whose byte size does not fit 64 bits would wrap to a small disk.
  if (sectors > (~std::uint64_t{0} >> 9)) return Common::MessageError(VR_SITE, Vhdx::kSizeNotSupported);
  try {
    Vhdx::Create(dir, name, ~options & 1, {sectors << 9, 512});
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

Common::Error DeleteVhdxDisk(rio_dir& dir, const std::u16string& name) {
  try {
    Vhdx::DiskDeleter::Delete(dir, name);
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

}  // namespace VirtualDisks
