// Vhd::Collector: the receiving end of a push enumeration. Module-internal;
// implemented by every stage of an interval or bitmap chain.
//
// The answer is a contract of the whole engine: true asks for the next value,
// false says stop, and a sender that hears false sends nothing more and
// reports false to its own caller.
#pragma once

#include "vhd/interval.h"

namespace Vhd {

template <typename T>
class Collector {
 public:
  virtual ~Collector() = default;
  virtual bool Collect(const T& value) = 0;
};

using DiskAreaCollector = Collector<DiskArea>;
using RegionAreaCollector = Collector<RegionArea>;

}  // namespace Vhd
