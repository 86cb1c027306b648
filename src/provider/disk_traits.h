// VirtualWareRaw::DiskTraits: the size rules a new hard disk of a machine
// must meet, chosen by the file's extension. The machine object calls them
// before it makes a container. Module-internal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace VirtualWareRaw {

class DiskTraits {
 public:
  virtual ~DiskTraits() = default;
  // The size in whole sectors that the disk will have; throws when the
  // rules refuse it.
  virtual std::uint64_t GetSizeInSectors(std::uint64_t sizeInBytes, std::uint32_t sectorSize) = 0;
  virtual std::uint64_t GetSizeInBytes(std::uint64_t sizeInBytes, std::uint32_t sectorSize) = 0;
};

class DiskTraitsBase : public DiskTraits {
 public:
  std::uint64_t GetSizeInBytes(std::uint64_t sizeInBytes, std::uint32_t sectorSize) override {
    return GetSizeInSectors(sizeInBytes, sectorSize) * sectorSize;
  }
};

class VhdxDiskTraits final : public DiskTraitsBase {
 public:
  std::uint64_t GetSizeInSectors(std::uint64_t sizeInBytes, std::uint32_t sectorSize) override;
};

// The older format's rules: 512-byte sectors, bounds, whole geometry.
class VhdDiskTraits final : public DiskTraitsBase {
 public:
  explicit VhdDiskTraits(std::uint32_t busCode) : busCode_(busCode) {}
  std::uint64_t GetSizeInSectors(std::uint64_t sizeInBytes, std::uint32_t sectorSize) override;

 private:
  std::uint32_t busCode_;
};

// The storage bus code of a machine's bus type (0 for an unknown one).
std::uint32_t FdiskBusCode(std::uint32_t busType);
// Throws 0x530108 for a sector size of 0.
std::uint64_t GetUpperRoundedSizeInSectors(std::uint64_t size, std::uint32_t sectorSize);
// By the extension of `file`: "vhdx" and "avhdx" (in any case) take the
// VHDX rules, everything else the older ones.
std::unique_ptr<DiskTraits> CreateDiskTraits(const std::u16string& file, std::uint32_t busType);

}  // namespace VirtualWareRaw
