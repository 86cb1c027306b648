// Vhd::CollectingDiskAreaIntersection: a finished set of disk areas that
// answers "which of them lie inside this area". Module-internal; the change
// tracking fills one from a Union and keeps it for later queries.
#pragma once

#include <set>

#include "vhd/collector.h"
#include "vhd/intersection.h"

namespace Vhd {

class CollectingDiskAreaIntersection : public Intersection<DiskArea>, public Collector<DiskArea> {
 public:
  CollectingDiskAreaIntersection() : set_(&Precedes) {}

  // A plain insertion: a value overlapping a stored one is dropped, not
  // merged. Safe because the only filler is a Union, whose output neither
  // overlaps nor touches.
  bool Collect(const DiskArea& value) override;

  // Sends each stored interval that truly overlaps `area`, cut to `area`.
  bool Intersect(const DiskArea& area, Collector<DiskArea>& collector) override;

 private:
  using Order = bool (*)(const DiskArea&, const DiskArea&);

  // Touching intervals are distinct here: equivalence means real overlap.
  static bool Precedes(const DiskArea& a, const DiskArea& b) { return a.Offset + a.Size <= b.Offset; }

  std::set<DiskArea, Order> set_;
};

}  // namespace Vhd
