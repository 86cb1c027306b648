// Vhdx::CachingBitmapArray: keeps the one bitmap last given by a source
// array. Module-internal; payload blocks are walked in order, so one cached
// chunk bitmap (1 MiB at most) serves every block of the chunk.
#pragma once

#include <memory>

#include "vhd/array.h"

namespace Vhdx {

class CachingBitmapArray : public Vhd::BitmapArray {
 public:
  explicit CachingBitmapArray(std::shared_ptr<Vhd::BitmapArray> source) : source_(std::move(source)) {}

  // Replacing the cached bitmap only drops this cache's reference: a writer
  // still holding the old one keeps it alive.
  std::shared_ptr<Vhd::Bitmap> Get(std::uint32_t chunk) override;

 private:
  std::shared_ptr<Vhd::BitmapArray> source_;
  std::shared_ptr<Vhd::Bitmap> cached_;
  std::uint32_t cachedIndex_ = 0;
};

}  // namespace Vhdx
