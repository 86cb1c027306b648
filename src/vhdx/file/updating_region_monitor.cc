#include "vhdx/file/updating_region_monitor.h"

#include <algorithm>

#include "vhdx/format/format.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"

namespace Vhdx {

void UpdatingRegionMonitor::OnExpanded(const Area&, const Area& newArea) {
  RegionList regions = RegionTableReader::Read(file_);
  auto it = std::find_if(regions.begin(), regions.end(),
                         [&](const RegionTableEntry& entry) { return entry.Guid == region_; });
  if (it == regions.end()) {
    regions.push_back({region_, newArea.Offset, newArea.Size, Format::kRegionRequired});
  } else {
    it->FileOffset = newArea.Offset;
    it->Length = newArea.Size;
  }
  RegionTableWriter::Write(file_, regions);
}

}  // namespace Vhdx
