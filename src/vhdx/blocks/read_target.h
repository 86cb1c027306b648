// Vhdx::ReadTarget: where the sectors of a read go, and which of them are
// still wanted. Module-internal; handed from the disk read down to the
// chunk and block readers.
//
// The bitmap is the request's to-do list: a reader clears the bits of the
// sectors it has filled, and what stays set must come from elsewhere (the
// parent of a differencing file). A slice shares the bits, so clearing a
// slice clears the request.
//
// A target with a map and no buffer asks where the sectors are instead of
// their bytes: each reader reports the runs it would fill to the map, and
// clears their bits as a read would.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/blocks/sector_run.h"

namespace Vhdx {

struct ReadTarget {
  std::uint64_t SectorSize = 0;
  std::uint8_t* Buffer = nullptr;  // the first sector's place
  std::shared_ptr<Vhd::Bitmap> Wanted;
  const SectorRunSink* Map = nullptr;
  std::uint64_t FirstSector = 0;  // of the virtual disk; kept for the map

  std::uint64_t GetSize() const { return Wanted->GetSize(); }
  ReadTarget Slice(std::uint64_t first, std::uint64_t count) const {
    return {SectorSize, Map ? nullptr : Buffer + first * SectorSize, Wanted->GetSubBitmap(first, count), Map,
            FirstSector + first};
  }
  void Report(SectorSource source, std::uint64_t fileOffset = 0) const {
    (*Map)({FirstSector, GetSize(), source, fileOffset, nullptr});
  }
};

}  // namespace Vhdx
