// The facade's disks: VirtualDiskBase presents a VirtualDiskImpl as a
// VirtualMachineDisk, errors returned at the border; MSVhdxVirtualMachineDisk
// adds the change queries of a VHDX container, and MSVhdxVirtualMachineDiskEx
// its raw metadata items. The factories open, create and delete containers
// for the provider. Module-internal; the provider's hard disks hand the
// disks to hosts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/disk.h"
#include "vellumrig/folder.h"
#include "vellumrig/tracker.h"
#include "virtual_disks/vhdx_disk_impl.h"

namespace VirtualDisks {

class VirtualDiskBase : public VirtualMachineDisk {
 public:
  // Takes the size, geometry and type from `impl` once, at construction.
  explicit VirtualDiskBase(std::unique_ptr<VirtualDiskImpl> impl);

  Common::Error Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count, void* buffer) override;
  Common::Error GetPlatformHandle(void*& handle) override;
  // Without change tracking: an empty ID, and no changed sectors.
  std::string GetCurrentChangeID() override { return {}; }
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed) override;
  std::uint32_t GetDiskType() override { return diskType_; }

 protected:
  std::unique_ptr<VirtualDiskImpl> impl_;
  std::uint32_t diskType_;
};

class MSVhdxVirtualMachineDisk : public VirtualDiskBase {
 public:
  explicit MSVhdxVirtualMachineDisk(std::unique_ptr<VhdxDiskImpl> impl);
  std::string GetCurrentChangeID() override;
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed) override;

  VhdxDiskImpl& Vhdx() { return static_cast<VhdxDiskImpl&>(*impl_); }
};

// The Ex interface over a held disk, whose slots it forwards.
class VirtualMachineDiskExBase : public VirtualMachineDiskEx {
 public:
  explicit VirtualMachineDiskExBase(std::unique_ptr<VirtualMachineDisk> disk) : disk_(std::move(disk)) {}

  std::uint32_t GetSectorSize() override { return disk_->GetSectorSize(); }
  std::uint64_t GetLastSector() override { return disk_->GetLastSector(); }
  Fdisk::Geometry GetGeometry() override { return disk_->GetGeometry(); }
  Common::Error Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count, void* buffer) override {
    return disk_->Access(operation, sector, count, buffer);
  }
  Common::Error GetPlatformHandle(void*& handle) override { return disk_->GetPlatformHandle(handle); }
  std::string GetCurrentChangeID() override { return disk_->GetCurrentChangeID(); }
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed) override {
    return disk_->GetChangedSectors(id, area, changed);
  }
  std::uint32_t GetDiskType() override { return disk_->GetDiskType(); }

 protected:
  std::unique_ptr<VirtualMachineDisk> disk_;
};

// The raw metadata items of the top container of a VHDX chain; the items
// the engine keeps for itself are neither listed nor settable.
class MSVhdxVirtualMachineDiskEx : public VirtualMachineDiskExBase {
 public:
  explicit MSVhdxVirtualMachineDiskEx(std::unique_ptr<MSVhdxVirtualMachineDisk> disk);

  Common::Error GetMetadataKeys(std::vector<MetadataKey>& keys) override;
  Common::Error GetMetadata(const MetadataKey& key, std::vector<std::uint8_t>& bytes) override;
  // A key that is no GUID is simply not there.
  Common::Error HasMetadata(const MetadataKey& key, bool& found) override;
  Common::Error SetMetadata(const MetadataKey& key, const std::vector<std::uint8_t>& bytes) override;

 private:
  VhdxDiskImpl& Impl() { return static_cast<MSVhdxVirtualMachineDisk&>(*disk_).Vhdx(); }
};

// Opens `name` in `dir` for reading and writing; never null. A failure to
// open is kept in the disk and answers each of its operations; it is also
// copied to `openError` when given.
std::unique_ptr<VirtualMachineDiskEx> OpenVhdxDisk(rio_dir& dir, const std::u16string& name,
                                                   std::uint32_t diskType, FileTracker* tracker,
                                                   Common::Error* openError = nullptr);

// A new dynamic container of `sectors` 512-byte sectors: `sectorSize` and
// `unused` are not read, so any other sector size gives a disk of another
// size than asked. Bit 0 of `options` clear asks for a dynamic container;
// set, it asks for a fixed one, which the engine refuses as not built.
Common::Error CreateVhdxDisk(rio_dir& dir, const std::u16string& name, std::uint64_t sectors,
                             std::uint32_t sectorSize, std::uint32_t unused, std::uint32_t options);
// Deletes `name` and the chain of its parents.
Common::Error DeleteVhdxDisk(rio_dir& dir, const std::u16string& name);

}  // namespace VirtualDisks
