#include "vhd/caching_bitmap_array.h"

namespace Vhdx {

std::shared_ptr<Vhd::Bitmap> CachingBitmapArray::Get(std::uint32_t chunk) {
  if (cached_ && cachedIndex_ == chunk) return cached_;
  std::shared_ptr<Vhd::Bitmap> bitmap = source_->Get(chunk);
  cached_ = bitmap;
  cachedIndex_ = chunk;
  return bitmap;
}

}  // namespace Vhdx
