// The metadata items the engine itself reads and writes: their value types
// in their on-disk encoding, the descriptors it creates them with, and the
// items each level keeps out of its callers' reach. Module-internal.
#pragma once

#include <cstdint>

#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/metadata/metadata_descriptor.h"

namespace Vhdx {

// Each value type has the size of its item, so that the consumer of a value
// can hold the item's length against sizeof.
struct FileParameters {
  static constexpr std::uint32_t kLeaveBlocksAllocated = 1;
  static constexpr std::uint32_t kHasParent = 2;

  std::uint32_t BlockSize = 0;
  std::uint32_t Flags = 0;

  bool LeaveBlocksAllocated() const { return (Flags & kLeaveBlocksAllocated) != 0; }
  bool HasParent() const { return (Flags & kHasParent) != 0; }

  static FileParameters Load(const std::uint8_t* p) { return {LoadLe32(p), LoadLe32(p + 4)}; }
  void Store(std::uint8_t* p) const {
    StoreLe32(p, BlockSize);
    StoreLe32(p + 4, Flags);
  }
};

struct VirtualDiskSize {
  std::uint64_t Bytes = 0;

  static VirtualDiskSize Load(const std::uint8_t* p) { return {LoadLe64(p)}; }
  void Store(std::uint8_t* p) const { StoreLe64(p, Bytes); }
};

struct VirtualDiskLogicalSectorSize {
  std::uint32_t Bytes = 0;

  static VirtualDiskLogicalSectorSize Load(const std::uint8_t* p) { return {LoadLe32(p)}; }
  void Store(std::uint8_t* p) const { StoreLe32(p, Bytes); }
};

struct VirtualDiskPhysicalSectorSize {
  std::uint32_t Bytes = 0;

  static VirtualDiskPhysicalSectorSize Load(const std::uint8_t* p) { return {LoadLe32(p)}; }
  void Store(std::uint8_t* p) const { StoreLe32(p, Bytes); }
};

static_assert(sizeof(FileParameters) == 8 && sizeof(VirtualDiskSize) == 8 &&
              sizeof(VirtualDiskLogicalSectorSize) == 4 &&
              sizeof(VirtualDiskPhysicalSectorSize) == 4);

// The descriptors the engine creates its items with.
namespace WellKnownItems {
inline constexpr std::uint32_t kRequired = Format::kMetadataIsRequired;
inline constexpr std::uint32_t kVirtualDiskRequired =
    Format::kMetadataIsVirtualDisk | Format::kMetadataIsRequired;

inline constexpr MetadataDescriptor kFileParameters{Format::kFileParametersItem, kRequired};
inline constexpr MetadataDescriptor kVirtualDiskSize{Format::kVirtualDiskSizeItem,
                                                     kVirtualDiskRequired};
inline constexpr MetadataDescriptor kPage83Data{Format::kPage83DataItem, kVirtualDiskRequired};
inline constexpr MetadataDescriptor kLogicalSectorSize{Format::kLogicalSectorSizeItem,
                                                       kVirtualDiskRequired};
inline constexpr MetadataDescriptor kPhysicalSectorSize{Format::kPhysicalSectorSizeItem,
                                                        kVirtualDiskRequired};
inline constexpr MetadataDescriptor kParentLocator{Format::kParentLocatorItem, kRequired};

// What the disk file keeps for itself: it derives the file's type and its
// parent from these, so callers neither see nor set them.
inline MetadataDescriptorList DiskFileItems() { return {kFileParameters, kParentLocator}; }
// What the disk keeps for itself: its geometry, fixed at creation.
inline MetadataDescriptorList DiskItems() { return {kVirtualDiskSize, kLogicalSectorSize}; }
}  // namespace WellKnownItems

}  // namespace Vhdx
