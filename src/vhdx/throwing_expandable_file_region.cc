#include "vhdx/throwing_expandable_file_region.h"

#include "common/site.h"
#include "vhdx/errors.h"

namespace Vhdx {

void ThrowingExpandableFileRegion::Expand(std::uint32_t) {
  throw Common::MessageError(VR_SITE, kInternalError);
}

}  // namespace Vhdx
