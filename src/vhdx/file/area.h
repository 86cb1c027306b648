// Vhdx::Area: a place in a file (or inside a region) as a 64-bit offset and
// a 32-bit size in bytes; the end, Offset + Size, is exclusive and a Size of
// 0 is empty. Module-internal; regions, space managers and allocators use it.
#pragma once

#include <cstdint>

#include "vhd/interval.h"

namespace Vhdx {

// The interval toolkit's area inside a region, so that regions and the
// collector chains speak of the same value.
using Area = Vhd::RegionArea;

// Whether the two share at least one byte; an empty area shares none.
inline bool Overlap(const Area& a, const Area& b) {
  return a.Size != 0 && b.Size != 0 && a.Offset < b.End() && b.Offset < a.End();
}

}  // namespace Vhdx
