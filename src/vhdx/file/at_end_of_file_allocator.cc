#include "vhdx/file/at_end_of_file_allocator.h"

#include <algorithm>

#include "common/site.h"
#include "vhdx/metadata/alignment.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

Area AtEndOfFileAllocator::Allocate(const Area& request) {
  const auto offset = RoundUp(std::max(file_.GetSize(), floor_), offsetAlignment_);
  const auto size = RoundUp(request.Size, sizeAlignment_);
  // Checked before the file grows, so a refused request leaves it as it was.
  if (!offset || !size || *size > UINT32_MAX || *size > UINT64_MAX - *offset)
    throw Common::MessageError(VR_SITE, kSpaceBounds);
  file_.Expand(*offset + *size);
  return {*offset, static_cast<std::uint32_t>(*size)};
}

}  // namespace Vhdx
