// Vhd::Intersection: sends the parts of a stored set that lie inside an
// area. Module-internal; the change tracking answers queries through it.
#pragma once

#include "vhd/collector.h"

namespace Vhd {

template <typename T>
class Intersection {
 public:
  virtual ~Intersection() = default;
  // The result has the meaning of Enumerator::Enumerate.
  virtual bool Intersect(const T& area, Collector<T>& collector) = 0;
};

}  // namespace Vhd
