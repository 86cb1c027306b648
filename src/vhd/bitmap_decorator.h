// Vhdx::BitmapDecorator: a bitmap that forwards every operation to another
// one. Module-internal; the base of bitmaps that watch or alter some of the
// operations (the change-tracking bitmap). It does not own the decorated
// bitmap: a derived class that must keep it alive holds its own reference.
#pragma once

#include "vhd/bitmap.h"

namespace Vhdx {

class BitmapDecorator : public Vhd::Bitmap {
 public:
  explicit BitmapDecorator(Vhd::Bitmap& decorated) : decorated_(&decorated) {}

  std::uint64_t GetSize() const override { return decorated_->GetSize(); }
  std::shared_ptr<Vhd::Bitmap> GetSubBitmap(std::uint64_t start, std::uint64_t count) override {
    return decorated_->GetSubBitmap(start, count);
  }
  bool Get(std::uint64_t index) const override { return decorated_->Get(index); }
  std::uint64_t FindNext(std::uint64_t start, std::uint64_t count, bool value) const override {
    return decorated_->FindNext(start, count, value);
  }
  std::uint64_t FindNext(std::uint64_t start, bool value) const override {
    return decorated_->FindNext(start, value);
  }
  std::uint64_t Find(bool value) const override { return decorated_->Find(value); }
  void Set(std::uint64_t start, std::uint64_t count, bool value) override {
    decorated_->Set(start, count, value);
  }
  void Set(std::uint64_t index, bool value) override { decorated_->Set(index, value); }
  void SetAll(bool value) override { decorated_->SetAll(value); }

 protected:
  Vhd::Bitmap& Decorated() const { return *decorated_; }

 private:
  Vhd::Bitmap* decorated_;
};

}  // namespace Vhdx
