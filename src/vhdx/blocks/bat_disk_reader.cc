#include "vhdx/blocks/bat_disk_reader.h"

#include "common/site.h"
#include "vhdx/blocks/chunk_reader.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void BatDiskReader::Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) {
  Walk(sector, wanted, static_cast<std::uint8_t*>(buffer), nullptr);
}

void BatDiskReader::Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) {
  Walk(sector, wanted, nullptr, &map);
}

void BatDiskReader::Walk(std::uint64_t sector, Vhd::Bitmap& wanted, std::uint8_t* bytes, const SectorRunSink* map) {
  const std::uint64_t n = wanted.GetSize();
  const std::uint64_t last = n == 0 ? sector : sector + n - 1;
  if (last >= geometry_.SectorCount || last < sector)
    throw Common::MessageError(VR_SITE, kBeyondAllocation);

  const std::uint64_t first = wanted.Find(true);
  const std::shared_ptr<BatArea> area = bat_.Load(sector + first, n - first);
  const std::uint64_t entriesPerChunk = std::uint64_t{geometry_.ChunkRatio} + 1;
  for (std::uint64_t i = first; i < n;) {
    const std::uint64_t at = sector + i;
    const std::uint64_t chunk = (at >> 23) - area->FirstChunk;
    ChunkReader reader(area->Entries.data() + chunk * entriesPerChunk, geometry_.ChunkRatio, file_,
                       isDifferencing_, geometry_.SectorsPerBlock, cache_);
    const std::uint64_t c = ChunkTraits::GetSectorsInChunk(at, n - i);
    reader.Read(ChunkTraits::GetOffsetInChunk(at),
                {geometry_.SectorSize, map ? nullptr : bytes + i * geometry_.SectorSize, wanted.GetSubBitmap(i, c),
                 map, at});
    i = wanted.FindNext(i + c, true);
  }
}

}  // namespace Vhdx
