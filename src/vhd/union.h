// Vhd::Union: collects intervals and keeps them merged, then sends them in
// ascending order. Module-internal; the accumulator of changed areas.
//
// Invariant: the stored intervals are sorted by Offset, never overlap and
// never touch, so each stored interval is a maximal run.
#pragma once

#include <iterator>
#include <set>

#include "vhd/collector.h"
#include "vhd/enumerator.h"

namespace Vhd {

template <typename T>
class Union : public Collector<T>, public Enumerator<T> {
 public:
  Union() : set_(&Precedes) {}

  // Never says stop.
  bool Collect(const T& value) override {
    // Under the order, every stored interval that overlaps or touches
    // `value` is equivalent to it, and those form one contiguous run.
    auto first = set_.lower_bound(value);
    auto last = set_.upper_bound(value);
    if (first == last) {
      set_.insert(last, value);
      return true;
    }
    // Unite before changing anything, so a failure leaves the set whole.
    T united = value;
    for (auto it = first; it != last; ++it) united = united.Unite(*it);
    // The first node of the run is reused for the result: merging needs no
    // allocation, and nothing that can fail follows the erase.
    auto node = set_.extract(first++);
    set_.erase(first, last);
    node.value() = united;
    set_.insert(last, std::move(node));
    return true;
  }

  bool Enumerate(Collector<T>& collector) override {
    for (const T& value : set_)
      if (!collector.Collect(value)) return false;
    return true;
  }

 private:
  using Order = bool (*)(const T&, const T&);

  // Strictly before and not touching.
  static bool Precedes(const T& a, const T& b) { return a.Offset + a.Size < b.Offset; }

  std::set<T, Order> set_;
};

using DiskAreaUnion = Union<DiskArea>;

}  // namespace Vhd
