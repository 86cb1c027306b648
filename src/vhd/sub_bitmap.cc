#include "vhd/sub_bitmap.h"

namespace Vhd {

SubBitmap::SubBitmap(std::shared_ptr<Bitmap> parent, std::uint64_t start, std::uint64_t size)
    : SizeHolder(size), parent_(std::move(parent)), start_(start) {}

std::shared_ptr<Bitmap> SubBitmap::GetSubBitmap(std::uint64_t start, std::uint64_t count) {
  CheckRange(start, count);
  return std::make_shared<SubBitmap>(parent_, start_ + start, count);
}

bool SubBitmap::Get(std::uint64_t index) const {
  CheckBound(index);
  return parent_->Get(start_ + index);
}

std::uint64_t SubBitmap::FindNext(std::uint64_t start, std::uint64_t count, bool value) const {
  // The same early answers as the owning bitmap, in the view's own terms.
  if (start == size_) return size_;
  if (count == 0) return start;
  CheckRange(start, count);
  return parent_->FindNext(start_ + start, count, value) - start_;
}

void SubBitmap::Set(std::uint64_t start, std::uint64_t count, bool value) {
  CheckRange(start, count);
  parent_->Set(start_ + start, count, value);
}

void SubBitmap::Set(std::uint64_t index, bool value) {
  CheckBound(index);
  parent_->Set(start_ + index, value);
}

void SubBitmap::SetAll(bool value) { parent_->Set(start_, size_, value); }

}  // namespace Vhd
