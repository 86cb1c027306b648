// The arrays that give, on demand, the sector bitmap of a chunk, the bitmap
// view of one payload block, and the enumerator of a block's present
// sectors. Module-internal; the chains that turn BAT entries into disk
// areas get per-block answers through them without knowing the arithmetic.
#pragma once

#include <memory>

#include "vhd/array.h"
#include "vhd/present_bitmap_enumerator.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/blocks/bitmap_loader.h"

namespace Vhdx {

// Indexed by chunk: the chunk's bitmap entry goes to the source.
class LoadingBitmapArray : public Vhd::BitmapArray {
 public:
  LoadingBitmapArray(std::shared_ptr<Vhd::Array<BatEntry>> entries, std::shared_ptr<BitmapSource> source,
                     std::uint32_t chunkRatio)
      : entries_(std::move(entries)), source_(std::move(source)), chunkRatio_(chunkRatio) {}

  std::shared_ptr<Vhd::Bitmap> Get(std::uint32_t chunk) override {
    return source_->Load(entries_->Get(static_cast<std::uint32_t>(BitmapEntryIndex(chunk, chunkRatio_))));
  }

 private:
  std::shared_ptr<Vhd::Array<BatEntry>> entries_;
  std::shared_ptr<BitmapSource> source_;
  std::uint32_t chunkRatio_;
};

// Indexed by payload block: a view of the block's bits that shares them
// with the chunk's bitmap, so that a change through it is the chunk's.
class BlockBitmapArray : public Vhd::BitmapArray {
 public:
  BlockBitmapArray(std::shared_ptr<Vhd::BitmapArray> chunkBitmaps, std::shared_ptr<const ChunkFeatures> features)
      : chunkBitmaps_(std::move(chunkBitmaps)), features_(std::move(features)) {}

  std::shared_ptr<Vhd::Bitmap> Get(std::uint32_t block) override {
    const std::shared_ptr<Vhd::Bitmap> chunk =
        chunkBitmaps_->Get(static_cast<std::uint32_t>(features_->GetChunkOfBlock(block)));
    const Vhd::DiskArea bits = features_->GetBlockArea(block);
    return chunk->GetSubBitmap(bits.Offset, bits.Size);
  }

 private:
  std::shared_ptr<Vhd::BitmapArray> chunkBitmaps_;
  std::shared_ptr<const ChunkFeatures> features_;
};

// Indexed by payload block: the whole block counts as present.
class BlockDiskAreaEnumeratorArray : public Vhd::DiskAreaEnumeratorArray {
 public:
  explicit BlockDiskAreaEnumeratorArray(std::shared_ptr<const DataBlockTraits> traits)
      : traits_(std::move(traits)) {}

  std::shared_ptr<Vhd::Enumerator<Vhd::DiskArea>> Get(std::uint32_t block) override;

 private:
  std::shared_ptr<const DataBlockTraits> traits_;
};

// Indexed by payload block: the runs of present sectors of the block's
// bitmap, as sectors of the disk.
class BlockBitmapDiskAreaEnumeratorArray : public Vhd::DiskAreaEnumeratorArray {
 public:
  BlockBitmapDiskAreaEnumeratorArray(std::shared_ptr<const DataBlockTraits> traits,
                                     std::shared_ptr<Vhd::DiskAreaEnumeratorFactory> factory,
                                     std::shared_ptr<Vhd::BitmapArray> bitmaps)
      : traits_(std::move(traits)), factory_(std::move(factory)), bitmaps_(std::move(bitmaps)) {}

  std::shared_ptr<Vhd::Enumerator<Vhd::DiskArea>> Get(std::uint32_t block) override {
    return factory_->Create(traits_->GetFirstSector(block), bitmaps_->Get(block));
  }

 private:
  std::shared_ptr<const DataBlockTraits> traits_;
  std::shared_ptr<Vhd::DiskAreaEnumeratorFactory> factory_;
  std::shared_ptr<Vhd::BitmapArray> bitmaps_;
};

}  // namespace Vhdx
