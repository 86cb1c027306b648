// Vhdx::SectorRun: where a run of virtual disk sectors comes from, as a walk
// of the BAT (and the sector bitmaps) finds it without reading any data.
// For tools that move a whole disk faster than sector reads can: export
// copies data runs file to file and leaves holes alone, and the NBD plugin
// answers extent queries. Module-internal and tools.
#pragma once

#include <cstdint>
#include <functional>

namespace Vhdx {

class DiskFileHierarchy;

enum class SectorSource : std::uint8_t {
  kHole,  // no file of the chain holds the sectors: they read zeros
  kZero,  // a file states them zero
  kData,  // a file holds their bytes
};

struct SectorRun {
  std::uint64_t Sector = 0;  // first sector of the virtual disk
  std::uint64_t Count = 0;
  SectorSource Source = SectorSource::kHole;
  // kData only: where the first sector's bytes lie in the container file,
  // and which file of the chain that is (null below the chain's level).
  std::uint64_t FileOffset = 0;
  const DiskFileHierarchy* File = nullptr;
};

using SectorRunSink = std::function<void(const SectorRun&)>;

}  // namespace Vhdx
