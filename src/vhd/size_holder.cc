#include "vhd/size_holder.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhd/errors.h"

namespace Vhd {

void SizeHolder::CheckBound(std::uint64_t index) const {
  if (index >= size_) throw Common::MessageError(VR_SITE, kBitmapBounds);
}

void SizeHolder::CheckRange(std::uint64_t start, std::uint64_t count) const {
  CheckBound(start);
  // start < size_ here, so the subtraction cannot wrap.
  if (count > size_ - start) throw Common::MessageError(VR_SITE, kBitmapBounds);
}

}  // namespace Vhd
