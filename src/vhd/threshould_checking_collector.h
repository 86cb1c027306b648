// Vhdx::ThreshouldCheckingCollector: answers each value by comparing it with
// a fixed threshold. Module-internal; the end of the saturation check, where
// "stop" means the threshold is reached. (The name's spelling is the one the
// engine uses everywhere.)
#pragma once

#include <utility>

#include "vhd/collector.h"

namespace Vhdx {

template <typename T, typename P = bool (*)(const T&, const T&)>
class ThreshouldCheckingCollector : public Vhd::Collector<T> {
 public:
  ThreshouldCheckingCollector(const T& threshold, P predicate)
      : threshold_(threshold), predicate_(std::move(predicate)) {}

  // Keeps nothing: the same value always gives the same answer.
  bool Collect(const T& value) override { return predicate_(value, threshold_); }

 private:
  T threshold_;
  P predicate_;
};

// The goal of the walk down a differencing chain: false (saturated) once
// one interval covers the whole threshold.
inline bool FallsShort(const Vhd::DiskArea& value, const Vhd::DiskArea& threshold) {
  return value.Offset > threshold.Offset || value.End() < threshold.End();
}

}  // namespace Vhdx
