#include "vhdx/file/append_point.h"

#include <algorithm>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/metadata/alignment.h"

namespace Vhdx {

std::uint64_t AppendPoint::Take(File& file, std::uint64_t size) {
  const auto end = RoundUp(file.GetSize(), Format::kMiB);
  const auto floor = RoundUp(floor_, Format::kMiB);
  if (!end || !floor) throw Common::MessageError(VR_SITE, kSpaceBounds);
  const std::uint64_t base = std::max(*end, *floor);
  if (size > UINT64_MAX - base) throw Common::MessageError(VR_SITE, kSpaceBounds);
  floor_ = base + size;
  return base;
}

}  // namespace Vhdx
