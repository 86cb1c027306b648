// Saturation checking: ask, around every value, whether the goal is already
// reached. Module-internal; the differencing walk stops feeding its Union
// once the Union covers what the caller wants.
#pragma once

#include <memory>

#include "vhd/enumerator.h"
#include "vhd/saturable.h"

namespace Vhdx {

// Saturated when an enumeration into a fresh collector from the factory
// leaves that collector saturated. The factory's collectors are meant to
// stop after a value or so, which keeps a check cheap whatever the size of
// the enumerated set.
template <typename T>
class EnumeratorSaturationChecker : public Vhd::Saturable {
 public:
  EnumeratorSaturationChecker(Vhd::Enumerator<T>& enumerator, SaturableCollectorFactory<T>& factory)
      : enumerator_(&enumerator), factory_(&factory) {}

  bool IsSaturated() const override {
    const std::unique_ptr<Vhd::SaturableCollector<T>> collector = factory_->Create();
    enumerator_->Enumerate(*collector);
    return collector->IsSaturated();
  }

 private:
  Vhd::Enumerator<T>* enumerator_;
  SaturableCollectorFactory<T>* factory_;
};

// Forwards while the checker says the goal is not reached yet. The checker
// is asked before a value (a saturated goal needs nothing more) and again
// after it (this value may have been the one that reached it).
template <typename T>
class SaturationCheckingCollector : public Vhd::Collector<T> {
 public:
  SaturationCheckingCollector(const Vhd::Saturable& checker, std::shared_ptr<Vhd::Collector<T>> target)
      : checker_(&checker), target_(std::move(target)) {}

  bool Collect(const T& value) override {
    if (checker_->IsSaturated()) return false;
    if (!target_->Collect(value)) return false;
    return !checker_->IsSaturated();
  }

 private:
  const Vhd::Saturable* checker_;
  std::shared_ptr<Vhd::Collector<T>> target_;
};

}  // namespace Vhdx
