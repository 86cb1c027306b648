// Vhdx::RegionTableWriter: writes a region list to both region table
// copies, the first copy first. No flush: that is the caller's.
// Module-internal; for whatever moves a region, and container creation.
#pragma once

#include "vhdx/file/file.h"
#include "vhdx/format/region_table.h"

namespace Vhdx {

class RegionTableWriter {
 public:
  // A list longer than a table holds is refused with 0x3C0011, before any
  // write.
  static void Write(File& file, const RegionList& regions);
};

}  // namespace Vhdx
