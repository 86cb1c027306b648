// Vhd::SubBitmap: a window [start, start + size) onto another bitmap, sharing
// its bits. Module-internal; the bitmap of one payload block is such a view
// of its chunk's bitmap, so a Set through the block is seen by the chunk.
//
// Indices are checked against the view's own size, then shifted by `start`;
// the parent does the rest, quirks included.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhd/size_holder.h"

namespace Vhd {

class SubBitmap : public Bitmap, public SizeHolder {
 public:
  SubBitmap(std::shared_ptr<Bitmap> parent, std::uint64_t start, std::uint64_t size);

  using Bitmap::FindNext;

  std::uint64_t GetSize() const override { return size_; }
  // A view of this view refers to this view's parent, shifted: views never
  // stack up.
  std::shared_ptr<Bitmap> GetSubBitmap(std::uint64_t start, std::uint64_t count) override;
  bool Get(std::uint64_t index) const override;
  std::uint64_t FindNext(std::uint64_t start, std::uint64_t count, bool value) const override;
  void Set(std::uint64_t start, std::uint64_t count, bool value) override;
  void Set(std::uint64_t index, bool value) override;
  void SetAll(bool value) override;

 private:
  std::shared_ptr<Bitmap> parent_;
  std::uint64_t start_;
};

}  // namespace Vhd
