// Vhdx::RegionTableReader: the region list from the first region table
// copy that is valid. Module-internal; open paths and whoever must find a
// region afresh (regions may move).
#pragma once

#include <cstddef>
#include <optional>

#include "vhdx/file/file.h"
#include "vhdx/format/region_table.h"

namespace Vhdx {

class RegionTableReader {
 public:
  // Throws 0x3C0011 when neither copy is valid. A bad first copy is left as
  // it is.
  static RegionList Read(File& file);
  // Copy `index` alone (0 or 1); nothing when it is not valid. For tools
  // that report on each copy.
  static std::optional<RegionList> ReadCopy(File& file, std::size_t index);
};

}  // namespace Vhdx
