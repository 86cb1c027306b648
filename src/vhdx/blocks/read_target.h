// Vhdx::ReadTarget: where the sectors of a read go, and which of them are
// still wanted. Module-internal; handed from the disk read down to the
// chunk and block readers.
//
// The bitmap is the request's to-do list: a reader clears the bits of the
// sectors it has filled, and what stays set must come from elsewhere (the
// parent of a differencing file). A slice shares the bits, so clearing a
// slice clears the request.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"

namespace Vhdx {

struct ReadTarget {
  std::uint64_t SectorSize = 0;
  std::uint8_t* Buffer = nullptr;  // the first sector's place
  std::shared_ptr<Vhd::Bitmap> Wanted;

  std::uint64_t GetSize() const { return Wanted->GetSize(); }
  ReadTarget Slice(std::uint64_t first, std::uint64_t count) const {
    return {SectorSize, Buffer + first * SectorSize, Wanted->GetSubBitmap(first, count)};
  }
};

}  // namespace Vhdx
