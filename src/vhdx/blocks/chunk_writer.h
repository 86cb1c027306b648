// The chunk writers: the part of one write that falls in one chunk, cut at
// block boundaries and handed to a block writer chosen by each block's BAT
// state. Module-internal; made by the disk file's write for each chunk.
#pragma once

#include <cstdint>
#include <memory>

#include "vhdx/bat/bat_entry.h"
#include "vhdx/blocks/bitmap_store.h"
#include "vhdx/blocks/block_writer.h"
#include "vhdx/file/append_point.h"
#include "vhdx/file/file.h"
#include "vhdx/bat/reserved_areas.h"
#include "vhdx/blocks/source_buffer.h"

namespace Vhdx {

class ChunkWriter {
 public:
  // `entries` are the chunk's payload entries followed by its bitmap entry,
  // inside a loaded BatArea; it, the file, the place of new blocks and the
  // reserved areas must outlive the writer.
  ChunkWriter(BatEntry* entries, std::uint32_t sectorsPerBlock, File& dataFile, std::uint32_t blockSize,
              AppendPoint& place, const ReservedAreas& reserved)
      : entries_(entries),
        sectorsPerBlock_(sectorsPerBlock),
        dataFile_(dataFile),
        blockSize_(blockSize),
        place_(place),
        reserved_(reserved) {}
  ChunkWriter(const ChunkWriter&) = delete;
  ChunkWriter& operator=(const ChunkWriter&) = delete;
  virtual ~ChunkWriter() = default;

  // The source's first sector is sector `offsetInChunk` of the chunk; it
  // must not reach past the chunk.
  void Write(std::uint64_t offsetInChunk, const SourceBuffer& source);
  // What the chunk keeps beside its blocks (a sector bitmap) goes to the
  // file; called once, after Write.
  virtual void Commit() = 0;
  // Whether an entry of the chunk was changed in the BatArea.
  bool IsBatEntryChanged() const { return changed_; }

  // Raises kUnknownBlockState (0x3C001A) for a state that is none, and
  // 0x3C0040 for a present block that lies on the file's structures.
  std::unique_ptr<BlockWriter> CreateBlockWriter(std::uint64_t block, BatEntry& entry);

 protected:
  virtual std::unique_ptr<BlockWriter> CreateAllocatingBlockWriter(BatEntry& entry, std::uint64_t block) = 0;
  std::unique_ptr<BlockWriter> CreateFullyPresentBlockWriter(BatEntry& entry) {
    return std::make_unique<FullyPresentBlockWriter>(dataFile_, entry.GetFileOffset());
  }
  virtual std::unique_ptr<BlockWriter> CreatePartialBlockWriter(BatEntry& entry, std::uint64_t block) = 0;

  BatEntry* entries_;
  std::uint32_t sectorsPerBlock_;
  bool changed_ = false;
  File& dataFile_;
  std::uint32_t blockSize_;
  AppendPoint& place_;
  const ReservedAreas& reserved_;
};

class NonDifferencingDiskChunkWriter : public ChunkWriter {
 public:
  using ChunkWriter::ChunkWriter;

  void Commit() override {}

 protected:
  std::unique_ptr<BlockWriter> CreateAllocatingBlockWriter(BatEntry& entry, std::uint64_t) override {
    return std::make_unique<NonDifferencingDiskAllocatingBlockWriter>(dataFile_, place_, blockSize_, entry);
  }
  // Raises kPartialInFixed (0x3C0019): only a file with a parent has them.
  std::unique_ptr<BlockWriter> CreatePartialBlockWriter(BatEntry& entry, std::uint64_t block) override;
};

class DifferencingDiskChunkWriter : public ChunkWriter {
 public:
  // The chunk's sector bitmap is kept through `structureFile`.
  // `cache` carries the chunk's bitmap from one request to the next.
  DifferencingDiskChunkWriter(BatEntry* entries, std::uint32_t chunkRatio, std::uint32_t sectorsPerBlock,
                              File& dataFile, File& structureFile, std::uint32_t blockSize, AppendPoint& place,
                              const ReservedAreas& reserved, BitmapCache& cache);

  void Commit() override;

 protected:
  // A block that read zeros becomes fully present and needs no bits; one
  // that was not present takes the written sectors from the parent.
  std::unique_ptr<BlockWriter> CreateAllocatingBlockWriter(BatEntry& entry, std::uint64_t block) override;
  std::unique_ptr<BlockWriter> CreatePartialBlockWriter(BatEntry& entry, std::uint64_t block) override {
    return std::make_unique<BitmappedBlockWriter>(dataFile_, entry, BlockBitmap(block));
  }

 private:
  // Raises kUnknownBlockState for a bitmap entry in neither state.
  std::shared_ptr<BitmapStore> CreateBitmapStore(File& file, BatEntry& entry, BitmapCache& cache) const;
  std::shared_ptr<Vhd::Bitmap> BlockBitmap(std::uint64_t block);

  std::shared_ptr<BitmapStore> bitmapStore_;
};

}  // namespace Vhdx
