#include "vhdx/blocks/block_writer.h"

#include "vhdx/format/format.h"

namespace Vhdx {

void AllocatingBlockWriter::Write(std::uint64_t offsetInBlock, const SourceBuffer& source) {
  const std::uint64_t base = place_.Take(file_, blockSize_);
  file_.Write(base + offsetInBlock * source.SectorSize, source.Bytes(), source.Data);
  file_.Expand(base + blockSize_);
  OnWritten(base, offsetInBlock, source.Count);
}

void NonDifferencingDiskAllocatingBlockWriter::OnWritten(std::uint64_t base, std::uint64_t, std::uint64_t) {
  entry_.SetFileOffsetMb(base / Format::kMiB);
  entry_.SetState(PAYLOAD_BLOCK_FULLY_PRESENT);
  changed_ = true;
}

void DifferencingDiskAllocatingBlockWriter::OnWritten(std::uint64_t base, std::uint64_t offsetInBlock,
                                                      std::uint64_t count) {
  // Cleared by way of all set: the bitmap clears partial bytes by XOR, so
  // clearing a bit that is already clear would set it.
  blockBitmap_->SetAll(true);
  blockBitmap_->SetAll(false);
  blockBitmap_->Set(offsetInBlock, count, true);
  entry_.SetFileOffsetMb(base / Format::kMiB);
  const bool whole = blockBitmap_->Find(false) == blockBitmap_->GetSize();
  entry_.SetState(whole ? PAYLOAD_BLOCK_FULLY_PRESENT : PAYLOAD_BLOCK_PARTIALLY_PRESENT);
  changed_ = true;
}

void ExistingBlockWriter::Write(std::uint64_t offsetInBlock, const SourceBuffer& source) {
  file_.Write(blockOffset_ + offsetInBlock * source.SectorSize, source.Bytes(), source.Data);
  OnWritten(offsetInBlock, source.Count);
}

void BitmappedBlockWriter::OnWritten(std::uint64_t offsetInBlock, std::uint64_t count) {
  blockBitmap_->Set(offsetInBlock, count, true);
  if (entry_.GetState() == PAYLOAD_BLOCK_FULLY_PRESENT) return;
  if (blockBitmap_->Find(false) == blockBitmap_->GetSize()) {
    entry_.SetState(PAYLOAD_BLOCK_FULLY_PRESENT);
    changed_ = true;
  }
}

}  // namespace Vhdx
