// The arithmetic of blocks, chunks and BAT indices, kept in small trait
// objects so that the walkers, readers and writers stay free of it.
// Module-internal.
//
// With S the logical sector size and B the block size: a block holds B / S
// sectors, a chunk 2^23 sectors (what one sector bitmap block covers), and
// the chunk ratio (S << 23) / B is the number of payload blocks in a chunk.
// The BAT interleaves the entries chunk by chunk: ratio payload entries,
// then the chunk's sector bitmap entry.
#pragma once

#include <cstdint>

#include "vhd/interval.h"
#include "vhdx/file/area.h"
#include "vhdx/bat/bat_entry.h"

namespace Vhdx {

// A half-open range of chunks, blocks or BAT indices.
using IndexRange = Vhd::Interval<std::uint64_t, std::uint64_t>;

// The block geometry of a file, checked once so that no later division can
// be by zero and no sector of a chunk can fall outside its chunk's entries.
struct BlockGeometry {
  std::uint32_t BlockSize = 0;
  std::uint32_t SectorSize = 0;
  std::uint32_t SectorsPerBlock = 0;
  std::uint32_t ChunkRatio = 0;
  std::uint64_t SectorCount = 0;
  std::uint64_t PayloadBlocks = 0;
  std::uint64_t BatEntryCount = 0;

  // Raises kBadBlockGeometry (0x3C0003) for a size of 0, a block size that
  // is not a multiple of the sector size, or blocks that do not tile a
  // chunk exactly (which also covers a chunk ratio of 0). A hostile file
  // must not reach the arithmetic with such values.
  static BlockGeometry Make(std::uint32_t blockSize, std::uint32_t sectorSize, std::uint64_t virtualSize);
};

// Entries of a table for `payloadBlocks` blocks. A last, incomplete chunk
// has no bitmap entry counted, differencing files included.
inline std::uint64_t BatEntryCount(std::uint64_t payloadBlocks, std::uint64_t chunkRatio) {
  return payloadBlocks == 0 ? 0 : payloadBlocks + (payloadBlocks - 1) / chunkRatio;
}
inline std::uint64_t PayloadEntryIndex(std::uint64_t block, std::uint64_t chunkRatio) {
  return block + block / chunkRatio;
}
inline std::uint64_t BitmapEntryIndex(std::uint64_t chunk, std::uint64_t chunkRatio) {
  return (chunk + 1) * (chunkRatio + 1) - 1;
}

class ChunkFeatures {
 public:
  ChunkFeatures() = default;
  ChunkFeatures(const ChunkFeatures&) = delete;
  ChunkFeatures& operator=(const ChunkFeatures&) = delete;
  virtual ~ChunkFeatures() = default;

  virtual std::uint64_t GetChunkOfBlock(std::uint64_t block) const = 0;
  // The block's bits in its chunk's sector bitmap.
  virtual Vhd::DiskArea GetBlockArea(std::uint64_t block) const = 0;
};

class ChunkTraits : public ChunkFeatures {
 public:
  // A ratio or block of 0 raises an internal error.
  ChunkTraits(std::uint32_t chunkRatio, std::uint32_t sectorsPerBlock);

  std::uint64_t GetChunkOfBlock(std::uint64_t block) const override { return block / chunkRatio_; }
  Vhd::DiskArea GetBlockArea(std::uint64_t block) const override {
    return {(block * sectorsPerBlock_) & (kSectorsPerChunk - 1), sectorsPerBlock_};
  }

  std::uint32_t GetChunkRatio() const { return chunkRatio_; }
  std::uint32_t GetSectorsPerBlock() const { return sectorsPerBlock_; }
  // The chunks of the sectors [firstSector, firstSector + count). The count
  // is taken from the exclusive end sector, so a range ending exactly on a
  // chunk boundary counts the next chunk too. Kept: the loaded BAT slice is
  // keyed by this range, and every request must key it alike; the extra
  // chunk only costs reading a few more entries.
  static IndexRange GetChunkRange(std::uint64_t firstSector, std::uint64_t count) {
    const std::uint64_t first = firstSector >> 23;
    return {first, count == 0 ? 0 : ((firstSector + count) >> 23) - first + 1};
  }
  static std::uint64_t GetOffsetInChunk(std::uint64_t sector) { return sector & (kSectorsPerChunk - 1); }
  static std::uint64_t GetSectorsInChunk(std::uint64_t sector, std::uint64_t count) {
    const std::uint64_t room = kSectorsPerChunk - GetOffsetInChunk(sector);
    return count < room ? count : room;
  }

 private:
  std::uint32_t chunkRatio_;
  std::uint32_t sectorsPerBlock_;
};

class BatIndexTraits {
 public:
  BatIndexTraits() = default;
  BatIndexTraits(const BatIndexTraits&) = delete;
  BatIndexTraits& operator=(const BatIndexTraits&) = delete;
  virtual ~BatIndexTraits() = default;

  virtual bool IsBitmapEntry(std::uint64_t index) const = 0;
  // The payload block of a payload entry's index.
  virtual std::uint64_t GetPayloadIndex(std::uint64_t index) const = 0;
};

class ParametrizedBatIndexTraits : public BatIndexTraits {
 public:
  // A ratio of 0 raises an internal error.
  explicit ParametrizedBatIndexTraits(std::uint32_t chunkRatio);

  bool IsBitmapEntry(std::uint64_t index) const override { return (index + 1) % (chunkRatio_ + 1) == 0; }
  std::uint64_t GetPayloadIndex(std::uint64_t index) const override { return index - index / (chunkRatio_ + 1); }

 private:
  std::uint64_t chunkRatio_;
};

class DataBlockTraits {
 public:
  DataBlockTraits() = default;
  DataBlockTraits(const DataBlockTraits&) = delete;
  DataBlockTraits& operator=(const DataBlockTraits&) = delete;
  virtual ~DataBlockTraits() = default;

  virtual std::uint64_t GetFirstSector(std::uint64_t block) const = 0;
  // The block's sectors on the virtual disk.
  virtual Vhd::DiskArea GetArea(std::uint64_t block) const = 0;
};

class BlockSizeAwareDataBlockTraits : public DataBlockTraits {
 public:
  // A block of 0 sectors raises an internal error.
  explicit BlockSizeAwareDataBlockTraits(std::uint32_t sectorsPerBlock);

  std::uint64_t GetFirstSector(std::uint64_t block) const override { return block * sectorsPerBlock_; }
  Vhd::DiskArea GetArea(std::uint64_t block) const override { return {GetFirstSector(block), sectorsPerBlock_}; }

 private:
  std::uint64_t sectorsPerBlock_;
};

// From bytes inside the BAT region to the entries they touch.
class BatRegionAreaToIndexMap {
 public:
  BatRegionAreaToIndexMap() = default;
  BatRegionAreaToIndexMap(const BatRegionAreaToIndexMap&) = delete;
  BatRegionAreaToIndexMap& operator=(const BatRegionAreaToIndexMap&) = delete;
  virtual ~BatRegionAreaToIndexMap() = default;

  // The result's Offset is the first index, its End() the end index.
  virtual IndexRange Map(const Area& area) const = 0;
};

// An entry touched by a single byte counts; indices are capped at the
// table's entry count, so bytes behind the table map to an empty range.
class LimitedBatRegionAreaToIndexMap : public BatRegionAreaToIndexMap {
 public:
  explicit LimitedBatRegionAreaToIndexMap(std::uint64_t limit) : limit_(limit) {}

  IndexRange Map(const Area& area) const override;

 private:
  std::uint64_t limit_;
};

}  // namespace Vhdx
