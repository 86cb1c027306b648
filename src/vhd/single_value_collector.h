// Single-value collection: pass on the first value only and stop the sender.
// Module-internal; the saturation check of the differencing walk looks at
// nothing but the lowest interval of a Union.
#pragma once

#include <memory>

#include "vhd/saturable.h"
#include "vhd/saturation_preserver.h"

namespace Vhdx {

template <typename T>
class SingleValueCollector : public Vhd::Collector<T> {
 public:
  explicit SingleValueCollector(Vhd::Collector<T>& target) : target_(&target) {}

  // Stops the sender after the first value whatever the target answered:
  // the target's answer is kept by whoever stands behind this collector.
  bool Collect(const T& value) override {
    if (!collected_) {
      target_->Collect(value);
      collected_ = true;
    }
    return false;
  }

 private:
  Vhd::Collector<T>* target_;
  bool collected_ = false;
};

// The first value goes through a SaturationPreserver into the target, so
// that only the target's own stop counts as saturation, not the stop that
// ends the enumeration after one value.
template <typename T>
class SingleValueSaturableCollector : public Vhd::SaturableCollector<T> {
 public:
  explicit SingleValueSaturableCollector(Vhd::Collector<T>& target)
      : preserver_(target), single_(preserver_) {}
  // single_ points into preserver_: the object cannot move.
  SingleValueSaturableCollector(const SingleValueSaturableCollector&) = delete;
  SingleValueSaturableCollector& operator=(const SingleValueSaturableCollector&) = delete;

  bool Collect(const T& value) override { return single_.Collect(value); }
  bool IsSaturated() const override { return preserver_.IsSaturated(); }

 private:
  Vhd::SaturationPreserver<T> preserver_;
  SingleValueCollector<T> single_;
};

template <typename T>
class SingleValueSaturableCollectorFactory : public SaturableCollectorFactory<T> {
 public:
  explicit SingleValueSaturableCollectorFactory(Vhd::Collector<T>& target) : target_(&target) {}

  std::unique_ptr<Vhd::SaturableCollector<T>> Create() override {
    return std::make_unique<SingleValueSaturableCollector<T>>(*target_);
  }

 private:
  Vhd::Collector<T>* target_;
};

}  // namespace Vhdx
