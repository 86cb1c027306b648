// The region table in memory: its entries in file order, and the lookup of
// a region by GUID. Module-internal; read with RegionTableReader, written
// with RegionTableWriter.
#pragma once

#include <cstdint>
#include <vector>

#include "common/guid.h"

namespace Vhdx {

struct RegionTableEntry {
  Common::Guid Guid{};
  std::uint64_t FileOffset = 0;
  std::uint32_t Length = 0;
  // Carried through unchanged; nothing here tests it.
  std::uint32_t Required = 0;

  friend bool operator==(const RegionTableEntry&, const RegionTableEntry&) = default;
};

using RegionList = std::vector<RegionTableEntry>;

// The first entry with `guid`; throws 0x3C0018 naming the GUID when there is
// none. Regions with other GUIDs are never looked at, required or not.
RegionTableEntry GetRegionEntryById(const RegionList& regions, const Common::Guid& guid);

}  // namespace Vhdx
