#include "virtual_disks/disk_parameters.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace VirtualDisks {
namespace {

constexpr std::uint64_t kMaxVhdxBytes = 0x400000000000;  // 64 TiB
constexpr std::uint64_t kMinMSSectors = 6144;
constexpr std::uint64_t kMaxMSSectors = 4278190080;

}  // namespace

Common::Error CheckVhdxDiskParameters(std::uint64_t sectors, std::uint32_t sectorSize) {
  if (sectorSize != 512 && sectorSize != 4096) return Common::MessageError(VR_SITE, Vhdx::kSectorSizeNotSupported);
  // Divided, not multiplied: a count near 2^64 must not wrap into range.
  if (sectors > kMaxVhdxBytes / sectorSize) return Common::MessageError(VR_SITE, Vhdx::kSizeNotSupported);
  return Common::NoError;
}

Common::Error CheckMSDiskParameters(std::uint64_t sectors, std::uint32_t sectorSize, std::uint32_t adapter) {
  if (sectorSize != 512) return Common::MessageError(VR_SITE, Vhdx::kSectorSizeNotSupported);
  if (adapter != 1 && adapter != 3) return Common::MessageError(VR_SITE, Vhdx::kInvalidAdapter);
  if (sectors < kMinMSSectors || sectors > kMaxMSSectors) return Common::MessageError(VR_SITE, Vhdx::kSizeNotSupported);
  return Common::NoError;
}

}  // namespace VirtualDisks
