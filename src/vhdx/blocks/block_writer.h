// The block writers: one small object per payload block of a write, chosen
// by the block's BAT state. A block that is not yet in the file is appended
// where the disk file's AppendPoint says; the BAT entry is only changed in
// memory here, and written by the disk file after all payload and sector
// bitmaps. Module-internal; made by the chunk writers.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/file/append_point.h"
#include "vhdx/file/file.h"
#include "vhdx/blocks/source_buffer.h"

namespace Vhdx {

class BlockWriter {
 public:
  BlockWriter() = default;
  BlockWriter(const BlockWriter&) = delete;
  BlockWriter& operator=(const BlockWriter&) = delete;
  virtual ~BlockWriter() = default;

  // The source's first sector goes to sector `offsetInBlock` of the block.
  virtual void Write(std::uint64_t offsetInBlock, const SourceBuffer& source) = 0;
  virtual bool IsBatEntryChanged() const = 0;
};

// Appends the block: the request's sectors at the new place, then the file
// extended to the block's end, so that the rest of the block reads as zeros
// without a write of its own.
class AllocatingBlockWriter : public BlockWriter {
 public:
  // The file, the place and the entry (inside a loaded BatArea) must
  // outlive the writer.
  AllocatingBlockWriter(File& file, AppendPoint& place, std::uint32_t blockSize, BatEntry& entry)
      : entry_(entry), file_(file), place_(place), blockSize_(blockSize) {}

  void Write(std::uint64_t offsetInBlock, const SourceBuffer& source) override;
  bool IsBatEntryChanged() const override { return changed_; }

 protected:
  virtual void OnWritten(std::uint64_t base, std::uint64_t offsetInBlock, std::uint64_t count) = 0;

  BatEntry& entry_;
  bool changed_ = false;

 private:
  File& file_;
  AppendPoint& place_;
  std::uint32_t blockSize_;
};

// The block counts as present whole: what was not written reads as zeros.
// So for every block without a parent, and for a differencing file's block
// that read zeros before (undefined, zero or unmapped): its other sectors
// must go on reading zeros, not the parent's data.
class NonDifferencingDiskAllocatingBlockWriter : public AllocatingBlockWriter {
 public:
  using AllocatingBlockWriter::AllocatingBlockWriter;

 protected:
  void OnWritten(std::uint64_t base, std::uint64_t offsetInBlock, std::uint64_t count) override;
};

// With a parent only the written sectors are this file's; the others still
// read from the parent, as the block's bits in the sector bitmap say. Bits
// set for the block before it had a place in the file (a write cut short
// before its BAT update) are cleared, or they would hide the parent's data.
class DifferencingDiskAllocatingBlockWriter : public AllocatingBlockWriter {
 public:
  DifferencingDiskAllocatingBlockWriter(File& file, AppendPoint& place, std::uint32_t blockSize, BatEntry& entry,
                                        std::shared_ptr<Vhd::Bitmap> blockBitmap)
      : AllocatingBlockWriter(file, place, blockSize, entry), blockBitmap_(std::move(blockBitmap)) {}

 protected:
  void OnWritten(std::uint64_t base, std::uint64_t offsetInBlock, std::uint64_t count) override;

 private:
  std::shared_ptr<Vhd::Bitmap> blockBitmap_;
};

// Writes in place into a block the file already holds.
class ExistingBlockWriter : public BlockWriter {
 public:
  ExistingBlockWriter(File& file, std::uint64_t blockOffset) : file_(file), blockOffset_(blockOffset) {}

  void Write(std::uint64_t offsetInBlock, const SourceBuffer& source) override;

 protected:
  virtual void OnWritten(std::uint64_t offsetInBlock, std::uint64_t count) = 0;

 private:
  File& file_;
  std::uint64_t blockOffset_;
};

class FullyPresentBlockWriter : public ExistingBlockWriter {
 public:
  using ExistingBlockWriter::ExistingBlockWriter;

  bool IsBatEntryChanged() const override { return false; }

 protected:
  void OnWritten(std::uint64_t, std::uint64_t) override {}
};

// A partially present block marks what it receives, and rises to fully
// present when its last missing sector arrives; it never goes back.
class BitmappedBlockWriter : public ExistingBlockWriter {
 public:
  BitmappedBlockWriter(File& file, BatEntry& entry, std::shared_ptr<Vhd::Bitmap> blockBitmap)
      : ExistingBlockWriter(file, entry.GetFileOffset()), entry_(entry), blockBitmap_(std::move(blockBitmap)) {}

  bool IsBatEntryChanged() const override { return changed_; }

 protected:
  void OnWritten(std::uint64_t offsetInBlock, std::uint64_t count) override;

 private:
  BatEntry& entry_;
  std::shared_ptr<Vhd::Bitmap> blockBitmap_;
  bool changed_ = false;
};

}  // namespace Vhdx
