// Vhd::Array: gives the element at an index, on demand. Module-internal;
// the engine reaches chunk bitmaps, block bitmaps, block enumerators and
// BAT entries through it, so that loading and caching stay out of the
// walkers.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/bitmap.h"
#include "vhd/enumerator.h"

namespace Vhd {

template <typename T>
class Array {
 public:
  virtual ~Array() = default;
  virtual T Get(std::uint32_t index) = 0;
};

using BitmapArray = Array<std::shared_ptr<Bitmap>>;
using DiskAreaEnumeratorArray = Array<std::shared_ptr<Enumerator<DiskArea>>>;

}  // namespace Vhd
