// Vhd::Enumerator: the sending end of a push enumeration. Module-internal.
//
// Enumerate gives true when every value was sent, false when the collector
// said stop.
#pragma once

#include "vhd/collector.h"

namespace Vhd {

template <typename T>
class Enumerator {
 public:
  virtual ~Enumerator() = default;
  virtual bool Enumerate(Collector<T>& collector) = 0;
};

using DiskAreaEnumerator = Enumerator<DiskArea>;

}  // namespace Vhd
