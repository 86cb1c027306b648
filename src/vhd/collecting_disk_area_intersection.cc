#include "vhd/collecting_disk_area_intersection.h"

namespace Vhd {

bool CollectingDiskAreaIntersection::Collect(const DiskArea& value) {
  set_.insert(value);
  return true;
}

bool CollectingDiskAreaIntersection::Intersect(const DiskArea& area, Collector<DiskArea>& collector) {
  const auto last = set_.upper_bound(area);
  for (auto it = set_.lower_bound(area); it != last; ++it) {
    const DiskArea part = Clamp(*it, area);
    // A zero-size stored or asked interval is "equivalent" to its
    // neighbours without sharing a unit with them.
    if (part.Size == 0) continue;
    if (!collector.Collect(part)) return false;
  }
  return true;
}

}  // namespace Vhd
