// Saturation: whether further input could still change what a consumer
// wants. Module-internal; the differencing-chain walk uses it to leave early.
//
// Vhd::Saturable and Vhd::SaturableCollector are general; the factory lives
// in Vhdx because only the disk hierarchy makes saturable collectors anew.
#pragma once

#include <memory>

#include "vhd/collector.h"

namespace Vhd {

class Saturable {
 public:
  virtual ~Saturable() = default;
  virtual bool IsSaturated() const = 0;
};

template <typename T>
class SaturableCollector : public Saturable, public Collector<T> {};

}  // namespace Vhd

namespace Vhdx {

template <typename T>
class SaturableCollectorFactory {
 public:
  virtual ~SaturableCollectorFactory() = default;
  virtual std::unique_ptr<Vhd::SaturableCollector<T>> Create() = 0;
};

}  // namespace Vhdx
