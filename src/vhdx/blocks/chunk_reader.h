// Vhdx::ChunkReader: the part of one read that falls in one chunk, cut at
// block boundaries and handed to a block reader chosen by each block's BAT
// state. Module-internal; made by the disk read for each chunk it touches.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/blocks/bitmap_store.h"
#include "vhdx/blocks/block_reader.h"
#include "vhdx/file/file.h"
#include "vhdx/blocks/read_target.h"

namespace Vhdx {

class ChunkReader {
 public:
  // `entries` are the chunk's ratio payload entries followed by its bitmap
  // entry, inside a loaded BatArea that outlives the reader, as does the
  // file.
  // `cache`, when given, is the disk file's last used sector bitmap, taken
  // when it is this chunk's.
  ChunkReader(const BatEntry* entries, std::uint32_t chunkRatio, File& file, bool isDifferencing,
              std::uint32_t sectorsPerBlock, BitmapCache* cache = nullptr)
      : entries_(entries),
        chunkRatio_(chunkRatio),
        file_(file),
        isDifferencing_(isDifferencing),
        sectorsPerBlock_(sectorsPerBlock),
        cache_(cache) {}
  ChunkReader(const ChunkReader&) = delete;
  ChunkReader& operator=(const ChunkReader&) = delete;

  // The target's first sector is sector `offsetInChunk` of the chunk; it
  // must not reach past the chunk.
  void Read(std::uint64_t offsetInChunk, const ReadTarget& target);

  // Raises kPartialInFixed (0x3C0019) for a partially present block of a
  // file that has no parent, kUnknownBlockState (0x3C001A) for a state that
  // is none; a block's bits of the sector bitmap are loaded only for a
  // partial block.
  std::unique_ptr<BlockReader> CreateBlockReader(std::uint64_t block, BatEntry entry);

 private:
  std::shared_ptr<Vhd::Bitmap> BlockBits(std::uint64_t block);

  const BatEntry* entries_;
  std::uint32_t chunkRatio_;
  File& file_;
  bool isDifferencing_;
  std::uint32_t sectorsPerBlock_;
  BitmapCache* cache_;
};

}  // namespace Vhdx
