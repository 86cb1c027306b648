// Vhdx::BitmapSource and Vhdx::BitmapLoader: a chunk's sector bitmap block
// from its BAT entry. Module-internal; the block reads and the bitmap
// arrays of the change queries load through it.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class BitmapSource {
 public:
  BitmapSource() = default;
  BitmapSource(const BitmapSource&) = delete;
  BitmapSource& operator=(const BitmapSource&) = delete;
  virtual ~BitmapSource() = default;

  // The chunk's bitmap of 0x800000 bits, bit i set when sector i of the
  // chunk is present in this file.
  virtual std::shared_ptr<Vhd::DataOwningBitmap> Load(BatEntry entry) = 0;
};

class BitmapLoader : public BitmapSource {
 public:
  // The file must outlive the loader.
  explicit BitmapLoader(File& file) : file_(file) {}

  // Raises kBitmapMissing (0x3C001B) for SB_BLOCK_NOT_PRESENT and
  // kUnknownBlockState (0x3C001A) for any other state but SB_BLOCK_PRESENT.
  // The 1 MiB goes straight into the bitmap's own buffer.
  std::shared_ptr<Vhd::DataOwningBitmap> Load(BatEntry entry) override;
  // Bits [first, first + count) of the chunk's bitmap only, both multiples
  // of 8: what one block's read needs, without the whole megabyte.
  std::shared_ptr<Vhd::DataOwningBitmap> LoadPart(BatEntry entry, std::uint64_t first, std::uint64_t count);

 private:
  File& file_;
};

}  // namespace Vhdx
