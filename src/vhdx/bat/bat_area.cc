#include "vhdx/bat/bat_area.h"

#include <algorithm>

#include "vhdx/bat/bat_traits.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

std::shared_ptr<BatArea> BatAreaLoader::Load(std::uint64_t firstSector, std::uint64_t count) {
  const IndexRange chunks = ChunkTraits::GetChunkRange(firstSector, count);
  if (cached_ && cached_->FirstChunk == chunks.Offset && cached_->ChunkCount == chunks.Size) return cached_;

  auto area = std::make_shared<BatArea>();
  area->FirstChunk = chunks.Offset;
  area->ChunkCount = chunks.Size;
  area->Entries.resize(chunks.Size * (chunkRatio_ + 1));
  // The table is read as far as the geometry needs it, even past a region
  // stated too short: entries taken as absent there would show blocks that
  // hold data as zeros. Entries behind both stay zero (not present) instead
  // of being read from whatever follows: a last chunk is often incomplete,
  // and the chunk range may count one chunk that no sector of the disk has.
  const std::uint64_t start = chunks.Offset * (chunkRatio_ + 1) * sizeof(BatEntry);
  const std::uint64_t wanted = area->Entries.size() * sizeof(BatEntry);
  const std::uint64_t table = std::max<std::uint64_t>(batLocation_.Size, tableEntries_ * sizeof(BatEntry));
  const std::uint64_t inTable = start < table ? std::min<std::uint64_t>(wanted, table - start) : 0;
  auto* bytes = reinterpret_cast<std::uint8_t*>(area->Entries.data());
  if (inTable != 0) file_.Read(batLocation_.Offset + start, inTable, bytes);
  for (BatEntry& entry : area->Entries) entry = BatEntry(LoadLe64(reinterpret_cast<std::uint8_t*>(&entry)));

  cached_ = area;
  return area;
}

}  // namespace Vhdx
