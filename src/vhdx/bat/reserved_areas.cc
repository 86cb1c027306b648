#include "vhdx/bat/reserved_areas.h"

#include <algorithm>
#include <string>

#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void ReservedAreas::Check(std::uint64_t offset, std::uint64_t size) const {
  const std::uint64_t end = offset + size < offset ? UINT64_MAX : offset + size;
  for (const Vhd::FileRegion& area : areas_) {
    if (offset < area.Offset + area.Size && area.Offset < end)
      throw Common::MessageError(VR_SITE, kOverlappingBlock, {Common::FromUtf8(std::to_string(offset))});
  }
}

std::uint64_t ReservedAreas::End() const {
  std::uint64_t end = 0;
  for (const Vhd::FileRegion& area : areas_)
    end = std::max(end, area.Offset > UINT64_MAX - area.Size ? UINT64_MAX : area.Offset + area.Size);
  return end;
}

}  // namespace Vhdx
