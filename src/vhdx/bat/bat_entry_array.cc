#include "vhdx/bat/bat_entry_array.h"

#include "vhdx/format/little_endian.h"

namespace Vhdx {

BatEntry FileRegionBatEntryArray::Get(std::uint32_t index) {
  std::uint8_t bytes[sizeof(BatEntry)];
  region_.Read({std::uint64_t{index} * sizeof(BatEntry), sizeof bytes}, bytes);
  return BatEntry(LoadLe64(bytes));
}

}  // namespace Vhdx
