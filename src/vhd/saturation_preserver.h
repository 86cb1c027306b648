// Vhd::SaturationPreserver: remembers that its target once said stop.
// Module-internal; carries a stop across an enumeration whose own result is
// dropped, and tells the differencing walk whether to visit the parent.
#pragma once

#include "vhd/saturable.h"

namespace Vhd {

template <typename T>
class SaturationPreserver : public SaturableCollector<T> {
 public:
  explicit SaturationPreserver(Collector<T>& target) : target_(&target) {}

  // Once saturated, nothing more reaches the target and the answer stays
  // "stop": the flag never falls back.
  bool Collect(const T& value) override {
    if (!saturated_) saturated_ = !target_->Collect(value);
    return !saturated_;
  }

  bool IsSaturated() const override { return saturated_; }

 private:
  Collector<T>* target_;
  bool saturated_ = false;
};

}  // namespace Vhd
