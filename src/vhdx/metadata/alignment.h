// Rounding up to an alignment, as the space management of the container
// uses it. Module-internal.
#pragma once

#include <cstdint>
#include <optional>

namespace Vhdx {

// `value` rounded up to a multiple of `alignment`; an alignment of 0 leaves
// the value as it is, and 0 stays 0. Nothing when the result does not fit.
inline std::optional<std::uint64_t> RoundUp(std::uint64_t value, std::uint64_t alignment) {
  if (alignment == 0 || value == 0) return value;
  const std::uint64_t units = (value - 1) / alignment + 1;
  if (units > UINT64_MAX / alignment) return std::nullopt;
  return units * alignment;
}

}  // namespace Vhdx
