#include "vhd/present_bitmap_enumerator.h"

namespace Vhd {

bool PresentBitmapEnumerator::Enumerate(Collector<DiskArea>& collector) {
  std::uint64_t a = bitmap_->FindNext(0, true);
  std::uint64_t b = bitmap_->FindNext(a, false);
  while (b != a) {
    if (!collector.Collect(DiskArea{offset_ + a, b - a})) return false;
    a = bitmap_->FindNext(b, true);
    b = bitmap_->FindNext(a, false);
  }
  return true;
}

}  // namespace Vhd
