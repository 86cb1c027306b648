// Vhd::PresentBitmapEnumerator: sends the runs of set bits of a bitmap as
// disk areas. Module-internal; a partially present block reports the
// sectors it holds through it.
//
// Runs are found by two searches each (the next set bit, then the next clear
// one), so a run is never split and each byte is looked at once.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhd/enumerator.h"

namespace Vhd {

class PresentBitmapEnumerator : public Enumerator<DiskArea> {
 public:
  // `offset` is added to every bit index: the first sector of the bitmap.
  PresentBitmapEnumerator(std::uint64_t offset, std::shared_ptr<Bitmap> bitmap)
      : offset_(offset), bitmap_(std::move(bitmap)) {}

  bool Enumerate(Collector<DiskArea>& collector) override;

 private:
  std::uint64_t offset_;
  std::shared_ptr<Bitmap> bitmap_;
};

// Makes the enumerator of one block's bitmap, its bits counted from `offset`.
class DiskAreaEnumeratorFactory {
 public:
  virtual ~DiskAreaEnumeratorFactory() = default;
  virtual std::unique_ptr<Enumerator<DiskArea>> Create(std::uint64_t offset, std::shared_ptr<Bitmap> bitmap) = 0;
};

class PresentBitmapEnumeratorFactory : public DiskAreaEnumeratorFactory {
 public:
  std::unique_ptr<Enumerator<DiskArea>> Create(std::uint64_t offset, std::shared_ptr<Bitmap> bitmap) override {
    return std::make_unique<PresentBitmapEnumerator>(offset, std::move(bitmap));
  }
};

}  // namespace Vhd
