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

// A megabyte a chunk: reading it again for every request into the chunk
// costs more than the request itself.
std::shared_ptr<Vhd::Bitmap> ChunkReader::LoadChunkBitmap() {
  const BatEntry entry = entries_[chunkRatio_];
  if (cache_ && cache_->Bitmap && cache_->Entry == entry) return cache_->Bitmap;
  std::shared_ptr<Vhd::DataOwningBitmap> bitmap = BitmapLoader(file_).Load(entry);
  if (cache_) *cache_ = {entry, bitmap};
  return bitmap;
}

std::unique_ptr<BlockReader> ChunkReader::CreateBlockReader(std::uint64_t block, BatEntry entry) {
  switch (entry.GetState()) {
    case PAYLOAD_BLOCK_NOT_PRESENT:
      if (isDifferencing_) return std::make_unique<NopBlockReader>();
      return std::make_unique<ZeroFillingBlockReader>();
    // These end the walk up a differencing chain with zeros.
    case PAYLOAD_BLOCK_UNDEFINED:
    case PAYLOAD_BLOCK_ZERO:
    case PAYLOAD_BLOCK_UNMAPPED:
      return std::make_unique<ZeroFillingBlockReader>();
    case PAYLOAD_BLOCK_FULLY_PRESENT:
      return std::make_unique<WholeBlockReader>(file_, entry.GetFileOffset());
    case PAYLOAD_BLOCK_PARTIALLY_PRESENT:
      if (!isDifferencing_) throw Common::MessageError(VR_SITE, kPartialInFixed);
      if (!chunkBitmap_) chunkBitmap_ = LoadChunkBitmap();
      return std::make_unique<BitmappedBlockReader>(
          file_, entry.GetFileOffset(), chunkBitmap_->GetSubBitmap(block * sectorsPerBlock_, sectorsPerBlock_));
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

}  // namespace Vhdx
