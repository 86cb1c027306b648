#include "vhdx/blocks/chunk_reader.h"

#include <algorithm>

#include "common/site.h"
#include "vhdx/blocks/bitmap_loader.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void ChunkReader::Read(std::uint64_t offsetInChunk, const ReadTarget& target) {
  const Vhd::Bitmap& wanted = *target.Wanted;
  const std::uint64_t size = wanted.GetSize();
  for (std::uint64_t k = wanted.FindNext(0, true); k < size;) {
    const std::uint64_t sector = offsetInChunk + k;
    const std::uint64_t block = sector / sectorsPerBlock_;
    const std::uint64_t inBlock = sector % sectorsPerBlock_;
    const std::unique_ptr<BlockReader> reader = CreateBlockReader(block, entries_[block]);
    const std::uint64_t m = std::min<std::uint64_t>(sectorsPerBlock_ - inBlock, size - k);
    reader->Read(inBlock, target.Slice(k, m));
    k = wanted.FindNext(k + m, true);
  }
}

// The chunk's bitmap is a megabyte: a read takes the block's few bytes of
// it, unless the chunk's whole bitmap is at hand in the writes' cache.
std::shared_ptr<Vhd::Bitmap> ChunkReader::BlockBits(std::uint64_t block) {
  const BatEntry entry = entries_[chunkRatio_];
  if (cache_ && cache_->Bitmap && cache_->Entry == entry)
    return cache_->Bitmap->GetSubBitmap(block * sectorsPerBlock_, sectorsPerBlock_);
  return BitmapLoader(file_).LoadPart(entry, block * sectorsPerBlock_, sectorsPerBlock_);
}

std::unique_ptr<BlockReader> ChunkReader::CreateBlockReader(std::uint64_t block, BatEntry entry) {
  switch (entry.GetState()) {
    case PAYLOAD_BLOCK_NOT_PRESENT:
      if (isDifferencing_) return std::make_unique<NopBlockReader>();
      return std::make_unique<ZeroFillingBlockReader>(SectorSource::kHole);
    // These end the walk up a differencing chain with zeros.
    case PAYLOAD_BLOCK_UNDEFINED:
    case PAYLOAD_BLOCK_ZERO:
    case PAYLOAD_BLOCK_UNMAPPED:
      return std::make_unique<ZeroFillingBlockReader>();
    case PAYLOAD_BLOCK_FULLY_PRESENT:
      return std::make_unique<WholeBlockReader>(file_, entry.GetFileOffset());
    case PAYLOAD_BLOCK_PARTIALLY_PRESENT:
      if (!isDifferencing_) throw Common::MessageError(VR_SITE, kPartialInFixed);
      return std::make_unique<BitmappedBlockReader>(file_, entry.GetFileOffset(), BlockBits(block));
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

}  // namespace Vhdx
