// Vhdx::LocationAware: the place of a region in its file, and the bound
// check of areas inside it. Module-internal; a base of the region
// implementations.
#pragma once

#include "vhdx/file/area.h"

namespace Vhdx {

class LocationAware {
 public:
  explicit LocationAware(const Area& location) : location_(location) {}

  const Area& Location() const { return location_; }

  // Throws 0x3C0036 unless `area` lies in the region, with a quirk: the last
  // byte of the area may be the one just behind the region.
  void CheckBound(const Area& area) const;

  // The file offset of `area`; CheckBound must have passed.
  std::uint64_t FileOffsetOf(const Area& area) const;

 private:
  Area location_{};
};

}  // namespace Vhdx
