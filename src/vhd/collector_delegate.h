// Vhd::CollectorDelegate: forwards to a collector it does not own.
// Module-internal; lets a collector held by reference go where a stage
// wants shared ownership of its target.
#pragma once

#include "vhd/collector.h"

namespace Vhd {

template <typename T>
class CollectorDelegate : public Collector<T> {
 public:
  explicit CollectorDelegate(Collector<T>& target) : target_(&target) {}

  bool Collect(const T& value) override { return target_->Collect(value); }

 private:
  Collector<T>* target_;
};

}  // namespace Vhd
