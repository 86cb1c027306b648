// The disk interfaces a host reads, writes and asks for changes through:
// Fdisk::SimpleDisk (sectors), VirtualMachineDisk (change IDs and changed
// sectors) and VirtualMachineDiskEx (raw metadata items). A host gets one
// from SafeRawHardDisk::GetDisk. Slot order is binary contract: hosts call
// these through the vtable, so operations are never added in the middle.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vellumrig/error.h"

namespace Fdisk {

// The CHS geometry of a disk: all zero for disk types that have none.
struct Geometry {
  std::uint8_t SectorsPerTrack = 0;
  std::uint8_t MaxHead = 0;
  std::uint32_t Cylinders = 0;
  friend bool operator==(const Geometry&, const Geometry&) = default;
};

// A run of sectors, the end exclusive.
struct Interval {
  std::uint64_t Offset = 0;
  std::uint64_t Size = 0;
  friend bool operator==(const Interval&, const Interval&) = default;
};

// Operations of Access.
inline constexpr std::uint32_t kAccessRead = 2;
inline constexpr std::uint32_t kAccessWrite = 3;

class SimpleDisk {
 public:
  virtual ~SimpleDisk() = default;
  virtual std::uint32_t GetSectorSize() { return sectorSize_; }
  // The number of the last sector (the count less one); 0 for an empty disk.
  virtual std::uint64_t GetLastSector() { return lastSector_; }
  virtual Geometry GetGeometry() { return geometry_; }
  // kAccessRead or kAccessWrite of `count` sectors from `sector`; any other
  // operation does nothing and succeeds.
  virtual Common::Error Access(std::uint32_t operation, std::uint64_t sector, std::uint64_t count,
                               void* buffer) = 0;
  // No disk of this system has one: always fails.
  virtual Common::Error GetPlatformHandle(void*& handle) = 0;

 protected:
  std::uint32_t sectorSize_ = 0;
  std::uint64_t lastSector_ = 0;
  Geometry geometry_;
};

}  // namespace Fdisk

class VirtualMachineDisk : public Fdisk::SimpleDisk {
 public:
  // Throws the tracker's Common::Error, or 0x3C003B without a tracker.
  virtual std::string GetCurrentChangeID() = 0;
  // The sectors within `area` changed since `id` ("*": all the data the
  // disk holds), in ascending order.
  virtual Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                          std::vector<Fdisk::Interval>& changed) = 0;
  virtual std::uint32_t GetDiskType() = 0;
};

// A metadata item's key: its GUID as text and its flags as the table
// stores them.
struct MetadataKey {
  std::string Guid;
  std::uint32_t Flags = 0;
};

class VirtualMachineDiskEx : public VirtualMachineDisk {
 public:
  virtual Common::Error GetMetadataKeys(std::vector<MetadataKey>& keys) = 0;
  virtual Common::Error GetMetadata(const MetadataKey& key, std::vector<std::uint8_t>& bytes) = 0;
  virtual Common::Error HasMetadata(const MetadataKey& key, bool& found) = 0;
  virtual Common::Error SetMetadata(const MetadataKey& key, const std::vector<std::uint8_t>& bytes) = 0;
};
