// Vhdx::BatDiskReader: a read of the virtual disk through the BAT of one
// file, with the request's bitmap as its to-do list. Module-internal; the
// disk file's Read is this, and a differencing hierarchy passes what stays
// wanted on to the parent.
#pragma once

#include <cstdint>

#include "vhd/bitmap.h"
#include "vhdx/bat/bat_area.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/blocks/bitmap_store.h"
#include "vhdx/blocks/sector_run.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class BatDiskReader {
 public:
  // The file and the loader (whose cached slice writes share) must outlive
  // the reader.
  BatDiskReader(File& file, BatAreaLoader& bat, const BlockGeometry& geometry, bool isDifferencing,
                BitmapCache* cache = nullptr)
      : file_(file), bat_(bat), geometry_(geometry), isDifferencing_(isDifferencing), cache_(cache) {}

  // `wanted` has one bit per sector from `sector` on, `buffer` room for all
  // of them. Fills the sectors whose bits are set and that this file holds,
  // clearing their bits; clear bits and their place in the buffer are left
  // alone. Raises kBeyondAllocation (0x3C0008), before anything is read,
  // unless the last sector (the first one for an empty request) is on the
  // disk. A failure midway leaves the bits of what was read clear.
  void Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer);
  // The same walk, reporting to `map` where the sectors this file holds lie
  // instead of reading them.
  void Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map);

 private:
  void Walk(std::uint64_t sector, Vhd::Bitmap& wanted, std::uint8_t* bytes, const SectorRunSink* map);

  File& file_;
  BatAreaLoader& bat_;
  BlockGeometry geometry_;
  bool isDifferencing_;
  BitmapCache* cache_;
};

}  // namespace Vhdx
