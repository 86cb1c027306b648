// Vhdx::SingleDiskAreaEnumerator: sends one fixed disk area. Module-internal;
// a fully present block reports its whole sector range through it.
#pragma once

#include "vhd/enumerator.h"

namespace Vhdx {

class SingleDiskAreaEnumerator : public Vhd::Enumerator<Vhd::DiskArea> {
 public:
  explicit SingleDiskAreaEnumerator(const Vhd::DiskArea& area) : area_(area) {}

  bool Enumerate(Vhd::Collector<Vhd::DiskArea>& collector) override { return collector.Collect(area_); }

 private:
  Vhd::DiskArea area_;
};

}  // namespace Vhdx
