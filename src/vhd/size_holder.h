// Vhd::SizeHolder: the size of a bitmap or view in bits, and the bound check
// every bitmap operation makes first. Module-internal.
#pragma once

#include <cstdint>

namespace Vhd {

class SizeHolder {
 public:
  explicit SizeHolder(std::uint64_t size) : size_(size) {}

  // Raises EngineBitmapBounds (0x3C0017) when index >= size.
  void CheckBound(std::uint64_t index) const;
  // CheckBound of `start` and, for a non-zero count, of start + count - 1,
  // without letting that sum wrap round past the size.
  void CheckRange(std::uint64_t start, std::uint64_t count) const;

 protected:
  std::uint64_t size_;
};

}  // namespace Vhd
