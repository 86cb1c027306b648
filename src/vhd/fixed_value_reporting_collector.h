// Vhdx::FixedValueReportingCollector: reports one fixed value for each value
// it receives, whatever that value is. Module-internal; turns "something is
// there" into a report of a known area.
#pragma once

#include "vhd/collector.h"

namespace Vhdx {

template <typename T, typename U>
class FixedValueReportingCollector : public Vhd::Collector<T> {
 public:
  FixedValueReportingCollector(const U& value, Vhd::Collector<U>& target) : value_(value), target_(&target) {}

  bool Collect(const T&) override { return target_->Collect(value_); }

 private:
  U value_;
  Vhd::Collector<U>* target_;
};

}  // namespace Vhdx
