#include "vhdx/blocks/chunk_writer.h"

#include <algorithm>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void ChunkWriter::Write(std::uint64_t offsetInChunk, const SourceBuffer& source) {
  for (std::uint64_t p = offsetInChunk; p < offsetInChunk + source.Count;) {
    const std::uint64_t block = p / sectorsPerBlock_;
    const std::unique_ptr<BlockWriter> writer = CreateBlockWriter(block, entries_[block]);
    const std::uint64_t o = p % sectorsPerBlock_;
    const std::uint64_t done = p - offsetInChunk;
    const std::uint64_t m = std::min<std::uint64_t>(sectorsPerBlock_ - o, source.Count - done);
    writer->Write(o, source.Slice(done, m));
    if (writer->IsBatEntryChanged()) changed_ = true;
    p += m;
  }
}

std::unique_ptr<BlockWriter> ChunkWriter::CreateBlockWriter(std::uint64_t block, BatEntry& entry) {
  switch (entry.GetState()) {
    case PAYLOAD_BLOCK_NOT_PRESENT:
    case PAYLOAD_BLOCK_UNDEFINED:
    case PAYLOAD_BLOCK_ZERO:
    case PAYLOAD_BLOCK_UNMAPPED:
      return CreateAllocatingBlockWriter(entry, block);
    case PAYLOAD_BLOCK_FULLY_PRESENT:
      reserved_.Check(entry.GetFileOffset(), blockSize_);
      return CreateFullyPresentBlockWriter(entry);
    case PAYLOAD_BLOCK_PARTIALLY_PRESENT:
      reserved_.Check(entry.GetFileOffset(), blockSize_);
      return CreatePartialBlockWriter(entry, block);
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

std::unique_ptr<BlockWriter> NonDifferencingDiskChunkWriter::CreatePartialBlockWriter(BatEntry&, std::uint64_t) {
  throw Common::MessageError(VR_SITE, kPartialInFixed);
}

DifferencingDiskChunkWriter::DifferencingDiskChunkWriter(BatEntry* entries, std::uint32_t chunkRatio,
                                                         std::uint32_t sectorsPerBlock, File& dataFile,
                                                         File& structureFile, std::uint32_t blockSize,
                                                         AppendPoint& place, const ReservedAreas& reserved,
                                                         BitmapCache& cache)
    : ChunkWriter(entries, sectorsPerBlock, dataFile, blockSize, place, reserved),
      bitmapStore_(CreateBitmapStore(structureFile, entries[chunkRatio], cache)) {}

std::shared_ptr<BitmapStore> DifferencingDiskChunkWriter::CreateBitmapStore(File& file, BatEntry& entry,
                                                                           BitmapCache& cache) const {
  switch (entry.GetState()) {
    case SB_BLOCK_NOT_PRESENT:
      return std::make_shared<NewBitmapStore>(file, place_, entry, cache);
    case SB_BLOCK_PRESENT:
      reserved_.Check(entry.GetFileOffset(), kSectorBitmapBlockSize);
      return std::make_shared<ExistingBitmapStore>(file, entry, cache);
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

std::unique_ptr<BlockWriter> DifferencingDiskChunkWriter::CreateAllocatingBlockWriter(BatEntry& entry,
                                                                                    std::uint64_t block) {
  // Fully present, its other sectors zeros from the file's extension, is
  // what both this engine and other readers take as the block's whole
  // content; all bits set over zero data would say the same, but would cost
  // a sector bitmap block the chunk may not have.
  if (entry.GetState() != PAYLOAD_BLOCK_NOT_PRESENT)
    return std::make_unique<NonDifferencingDiskAllocatingBlockWriter>(dataFile_, place_, blockSize_, entry);
  return std::make_unique<DifferencingDiskAllocatingBlockWriter>(dataFile_, place_, blockSize_, entry,
                                                                 BlockBitmap(block));
}

std::shared_ptr<Vhd::Bitmap> DifferencingDiskChunkWriter::BlockBitmap(std::uint64_t block) {
  bitmapStore_->WillChange(block * sectorsPerBlock_, sectorsPerBlock_);
  return bitmapStore_->GetBitmap()->GetSubBitmap(block * sectorsPerBlock_, sectorsPerBlock_);
}

void DifferencingDiskChunkWriter::Commit() {
  bitmapStore_->Flush();
  if (bitmapStore_->IsBatEntryChanged()) changed_ = true;
}

}  // namespace Vhdx
