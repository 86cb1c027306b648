#include "vhdx/bat/bat_traits.h"

#include <algorithm>
#include <string>

#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

namespace {

[[noreturn]] void RaiseBadGeometry(const Common::ErrorSite& site, std::uint64_t blockSize,
                                   std::uint64_t sectorSize) {
  throw Common::MessageError(site, kBadBlockGeometry,
                             {Common::FromUtf8(std::to_string(blockSize)),
                              Common::FromUtf8(std::to_string(sectorSize))});
}

// The traits are made from a checked BlockGeometry: a zero here is the
// engine's own fault, and still must not become a division by zero.
void CheckNonZero(const Common::ErrorSite& site, std::uint64_t value) {
  if (value == 0) throw Common::MessageError(site, kInternalError);
}

}  // namespace

namespace {
constexpr std::uint32_t kMinimumBlockSize = 1u << 20;
constexpr std::uint32_t kMaximumBlockSize = 256u << 20;
}  // namespace

BlockGeometry BlockGeometry::Make(std::uint32_t blockSize, std::uint32_t sectorSize,
                                  std::uint64_t virtualSize) {
  // Blocks below 1 MiB are outside the format; allowing them would let a
  // hostile file make one chunk's slice of the BAT hundreds of megabytes.
  // Blocks above 256 MiB are outside the format too; a write appends a whole
  // block, and one of gigabytes would be taken from a crafted file alone.
  if (blockSize < kMinimumBlockSize || blockSize > kMaximumBlockSize || sectorSize == 0 ||
      blockSize % sectorSize != 0)
    RaiseBadGeometry(VR_SITE, blockSize, sectorSize);
  BlockGeometry geometry;
  geometry.BlockSize = blockSize;
  geometry.SectorSize = sectorSize;
  geometry.SectorsPerBlock = blockSize / sectorSize;
  // The reader finds a block's entry by sector / sectors-per-block inside a
  // chunk: blocks that did not tile the chunk exactly would send the last
  // sectors to the bitmap entry's slot or beyond the loaded entries.
  const std::uint64_t ratio = (std::uint64_t{sectorSize} << 23) / blockSize;
  if (ratio == 0 || ratio * geometry.SectorsPerBlock != kSectorsPerChunk)
    RaiseBadGeometry(VR_SITE, blockSize, sectorSize);
  geometry.ChunkRatio = static_cast<std::uint32_t>(ratio);
  geometry.SectorCount = virtualSize / sectorSize;
  geometry.PayloadBlocks = virtualSize / blockSize + (virtualSize % blockSize != 0);
  geometry.BatEntryCount = Vhdx::BatEntryCount(geometry.PayloadBlocks, ratio);
  return geometry;
}

ChunkTraits::ChunkTraits(std::uint32_t chunkRatio, std::uint32_t sectorsPerBlock)
    : chunkRatio_(chunkRatio), sectorsPerBlock_(sectorsPerBlock) {
  CheckNonZero(VR_SITE, chunkRatio);
  CheckNonZero(VR_SITE, sectorsPerBlock);
}

ParametrizedBatIndexTraits::ParametrizedBatIndexTraits(std::uint32_t chunkRatio) : chunkRatio_(chunkRatio) {
  CheckNonZero(VR_SITE, chunkRatio);
}

BlockSizeAwareDataBlockTraits::BlockSizeAwareDataBlockTraits(std::uint32_t sectorsPerBlock)
    : sectorsPerBlock_(sectorsPerBlock) {
  CheckNonZero(VR_SITE, sectorsPerBlock);
}

IndexRange LimitedBatRegionAreaToIndexMap::Map(const Area& area) const {
  if (area.Size == 0) return {0, 0};
  const std::uint64_t first = std::min(area.Offset / sizeof(BatEntry), limit_);
  const std::uint64_t end =
      std::min((area.Offset + area.Size - 1) / sizeof(BatEntry) + 1, limit_);
  return {first, end - first};
}

}  // namespace Vhdx
