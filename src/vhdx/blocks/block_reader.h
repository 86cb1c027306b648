// The block readers: one small object per payload block of a read, chosen
// by the block's BAT state, that fills the wanted sectors of its block and
// clears their bits. Module-internal; made by ChunkReader.
//
// Sectors go straight into the caller's buffer, one file read per run of
// sectors; runs are never merged across blocks and nothing is read ahead.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/file/file.h"
#include "vhdx/blocks/read_target.h"

namespace Vhdx {

class BlockReader {
 public:
  BlockReader() = default;
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;
  virtual ~BlockReader() = default;

  // The target's first sector is sector `offsetInBlock` of the block.
  virtual void Read(std::uint64_t offsetInBlock, const ReadTarget& target) = 0;
};

// This file holds nothing of the block: the bits stay set for the parent.
class NopBlockReader : public BlockReader {
 public:
  void Read(std::uint64_t, const ReadTarget&) override {}
};

// Cuts the target into runs of wanted sectors and hands each on.
class ContinuousBlockReader : public BlockReader {
 public:
  void Read(std::uint64_t offsetInBlock, const ReadTarget& target) override;

 protected:
  // Every sector of `target` is wanted.
  virtual void ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) = 0;
};

class ZeroFillingBlockReader : public ContinuousBlockReader {
 public:
  // A map learns whether the zeros are a hole or stated by the file.
  explicit ZeroFillingBlockReader(SectorSource source = SectorSource::kZero) : source_(source) {}

 protected:
  void ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) override;

 private:
  SectorSource source_;
};

class WholeBlockReader : public ContinuousBlockReader {
 public:
  // The file must outlive the reader.
  WholeBlockReader(File& file, std::uint64_t blockOffset) : file_(file), blockOffset_(blockOffset) {}

 protected:
  void ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) override;

 private:
  File& file_;
  std::uint64_t blockOffset_;
};

// A partially present block: only the sectors set in the block's bitmap are
// read, the others stay wanted.
class BitmappedBlockReader : public ContinuousBlockReader {
 public:
  BitmappedBlockReader(File& file, std::uint64_t blockOffset, std::shared_ptr<Vhd::Bitmap> blockBitmap)
      : file_(file), blockOffset_(blockOffset), blockBitmap_(std::move(blockBitmap)) {}

 protected:
  void ReadContinuous(std::uint64_t offsetInBlock, const ReadTarget& target) override;

 private:
  File& file_;
  std::uint64_t blockOffset_;
  std::shared_ptr<Vhd::Bitmap> blockBitmap_;
};

}  // namespace Vhdx
