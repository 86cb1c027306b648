// Region decorators: forward the region operations to an owned inner
// region, so that a subclass replaces only what it changes. `Base` is the
// interface the decorator offers, which may be wider than the inner one's.
// Module-internal.
#pragma once

#include <memory>
#include <utility>

#include "vhdx/file/file_region.h"

namespace Vhdx {

template <class Base, class Inner = ReadOnlyFileRegion>
class ReadOnlyFileRegionDecorator : public Base {
 public:
  explicit ReadOnlyFileRegionDecorator(std::unique_ptr<Inner> inner) : inner_(std::move(inner)) {}

  Area GetLocation() const override { return inner_->GetLocation(); }
  void Read(const Area& area, void* buffer) override { inner_->Read(area, buffer); }

 protected:
  Inner& Decorated() { return *inner_; }

 private:
  std::unique_ptr<Inner> inner_;
};

template <class Base>
class WritableFileRegionDecorator : public ReadOnlyFileRegionDecorator<Base, WritableFileRegion> {
 public:
  using ReadOnlyFileRegionDecorator<Base, WritableFileRegion>::ReadOnlyFileRegionDecorator;

  void Write(const Area& area, const void* buffer) override {
    this->Decorated().Write(area, buffer);
  }
};

}  // namespace Vhdx
