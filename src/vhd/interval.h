// Vhd::Interval: a half-open range [Offset, Offset + Size) of sectors or
// bytes, the one value that flows through every collector chain of the
// container engine. Module-internal.
#pragma once

#include <algorithm>
#include <cstdint>

#include "common/message_error.h"
#include "common/site.h"
#include "vhd/errors.h"

namespace Vhd {

template <typename OffsetType, typename SizeType>
struct Interval {
  OffsetType Offset;
  SizeType Size;  // 0 is a legal, empty range

  OffsetType End() const { return Offset + Size; }

  // The smallest interval holding both. Touching ranges count as joined:
  // only a real gap between them is a caller's mistake.
  Interval Unite(const Interval& other) const {
    if (other.End() < Offset || End() < other.Offset)
      throw Common::MessageError(VR_SITE, kDisjointUnite);
    const OffsetType begin = std::min(Offset, other.Offset);
    const OffsetType end = std::max(End(), other.End());
    return Interval{begin, static_cast<SizeType>(end - begin)};
  }

  friend bool operator==(const Interval&, const Interval&) = default;
};

// A disk area counts sectors, a file region bytes; both need 64-bit sizes.
using DiskArea = Interval<std::uint64_t, std::uint64_t>;
using FileRegion = Interval<std::uint64_t, std::uint64_t>;
// An area inside one file region never spans more than 32 bits of bytes.
using RegionArea = Interval<std::uint64_t, std::uint32_t>;

// `value` cut down to `limit`: each bound is pulled into [limit.Offset,
// limit end]. The result is empty (Size 0) when they do not overlap.
template <typename OffsetType, typename SizeType>
Interval<OffsetType, SizeType> Clamp(const Interval<OffsetType, SizeType>& value,
                                     const Interval<OffsetType, SizeType>& limit) {
  const OffsetType limitEnd = limit.End();
  const OffsetType begin = std::min(limitEnd, std::max(value.Offset, limit.Offset));
  const OffsetType end = std::min(limitEnd, std::max(value.End(), limit.Offset));
  return {begin, static_cast<SizeType>(end - begin)};
}

}  // namespace Vhd
