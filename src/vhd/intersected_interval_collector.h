// Vhdx::IntersectedIntervalCollector: passes on only the part of each
// interval that lies inside a limit. Module-internal.
#pragma once

#include "vhd/collector.h"

namespace Vhdx {

template <typename T>
class IntersectedIntervalCollector : public Vhd::Collector<T> {
 public:
  IntersectedIntervalCollector(const T& limit, Vhd::Collector<T>& target) : limit_(limit), target_(&target) {}

  // A value outside the limit is no reason to stop: later ones may fall in.
  bool Collect(const T& value) override {
    const T part = Vhd::Clamp(value, limit_);
    if (part.Size == 0) return true;
    return target_->Collect(part);
  }

 private:
  T limit_;
  Vhd::Collector<T>* target_;
};

}  // namespace Vhdx
