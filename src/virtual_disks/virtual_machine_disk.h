// The facade's disks: VirtualDiskBase presents a VirtualDiskImpl as a
// VirtualMachineDisk, errors returned at the border; MSVhdxVirtualMachineDisk
// adds the change queries of a VHDX container. Module-internal; the
// provider's hard disks hand them to hosts.
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

 private:
  VhdxDiskImpl& Vhdx() { return static_cast<VhdxDiskImpl&>(*impl_); }
};

// Opens `name` in `dir` for reading and writing; never null. A failure to
// open is kept in the disk and answers each of its operations.
std::unique_ptr<VirtualMachineDisk> OpenVhdxDisk(rio_dir& dir, const std::u16string& name, std::uint32_t diskType,
                                                 FileTracker* tracker);

}  // namespace VirtualDisks
