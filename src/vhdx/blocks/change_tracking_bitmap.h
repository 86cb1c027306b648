// Vhdx::ChangeTrackingBitmap: a bitmap decorator that tells its observers
// before a change of bits is passed on. Module-internal; the bitmap store
// of a chunk watches it to know that the chunk's bitmap must be written.
//
// Views made of it track too, and report to the bitmap they were made
// from, so a Set on a block's view reaches whoever watches the chunk.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhd/bitmap_decorator.h"
#include "vhdx/file/observer.h"

namespace Vhdx {

class ChangeTrackingBitmap : public BitmapDecorator,
                             public Observable,
                             public std::enable_shared_from_this<ChangeTrackingBitmap> {
 public:
  // Passes a notification from a view on to the bitmap it was made from.
  class ObservingMediator : public Observer {
   public:
    explicit ObservingMediator(std::shared_ptr<ChangeTrackingBitmap> parent) : parent_(std::move(parent)) {}
    void Notify() override { parent_->NotifyObservers(); }

   private:
    std::shared_ptr<ChangeTrackingBitmap> parent_;
  };

  explicit ChangeTrackingBitmap(std::shared_ptr<Vhd::Bitmap> decorated)
      : BitmapDecorator(*decorated), decorated_(std::move(decorated)) {}

  // Must be held by a shared pointer: the view keeps this bitmap alive.
  std::shared_ptr<Vhd::Bitmap> GetSubBitmap(std::uint64_t start, std::uint64_t count) override {
    auto view = std::make_shared<ChangeTrackingBitmap>(BitmapDecorator::GetSubBitmap(start, count));
    view->Add(std::make_shared<ObservingMediator>(shared_from_this()));
    return view;
  }
  // Observers run first, so one that throws stops the change.
  void Set(std::uint64_t start, std::uint64_t count, bool value) override {
    NotifyObservers();
    BitmapDecorator::Set(start, count, value);
  }
  void Set(std::uint64_t index, bool value) override {
    NotifyObservers();
    BitmapDecorator::Set(index, value);
  }
  void SetAll(bool value) override {
    NotifyObservers();
    BitmapDecorator::SetAll(value);
  }

 private:
  std::shared_ptr<Vhd::Bitmap> decorated_;
};

}  // namespace Vhdx
