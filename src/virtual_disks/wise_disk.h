// WiseDisk: a VirtualMachineDisk held through a shared WiseObject, for a
// disk that several holders hand on; WiseDiskWrapper gives the Ex
// interface over one. Every slot checks that the disk is still held.
// Module-internal.
#pragma once

#include "vellumrig/disk.h"
#include "virtual_disks/virtual_machine_disk.h"
#include "virtual_disks/wise_object.h"

namespace VirtualDisks {

class WiseDisk : public VirtualMachineDisk {
 public:
  explicit WiseDisk(Fdisk::WiseObject<VirtualMachineDisk> disk) : disk_(std::move(disk)) {}
  // Lets the disk go; later calls fail their check.
  void Release() { disk_.Reset(); }

  std::uint32_t GetSectorSize() override;
  std::uint64_t GetLastSector() override;
  Fdisk::Geometry GetGeometry() override;
  Common::Error Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count, void* buffer) override;
  Common::Error GetPlatformHandle(void*& handle) override;
  std::string GetCurrentChangeID() override;
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed) override;
  std::uint32_t GetDiskType() override;

 private:
  // The disk, or nullptr after the failed check.
  VirtualMachineDisk* Held();

  Fdisk::WiseObject<VirtualMachineDisk> disk_;
};

// The Ex interface over a WiseDisk. A WiseDisk reaches no container's
// metadata, so those slots answer "The code is not implemented."
class WiseDiskWrapper : public VirtualMachineDiskExBase {
 public:
  explicit WiseDiskWrapper(std::unique_ptr<WiseDisk> disk) : VirtualMachineDiskExBase(std::move(disk)) {}
  Common::Error GetMetadataKeys(std::vector<MetadataKey>& keys) override;
  Common::Error GetMetadata(const MetadataKey& key, std::vector<std::uint8_t>& bytes) override;
  Common::Error HasMetadata(const MetadataKey& key, bool& found) override;
  Common::Error SetMetadata(const MetadataKey& key, const std::vector<std::uint8_t>& bytes) override;
};

}  // namespace VirtualDisks
