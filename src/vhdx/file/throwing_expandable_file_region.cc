#include "vhdx/file/throwing_expandable_file_region.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void ThrowingExpandableFileRegion::Expand(std::uint32_t) {
  throw Common::MessageError(VR_SITE, kInternalError);
}

}  // namespace Vhdx
