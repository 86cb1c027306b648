// Vhdx::UpdatingRegionMonitor: records a region's new place in the region
// table after the region has grown and moved. Module-internal; the disk
// file's metadata changes hand one to the expandable metadata region.
#pragma once

#include "common/guid.h"
#include "vhdx/file/expansion_monitor.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class UpdatingRegionMonitor : public ExpansionMonitor {
 public:
  // The file must outlive the monitor.
  UpdatingRegionMonitor(const Common::Guid& region, File& file) : region_(region), file_(file) {}

  // Rewrites both table copies; an entry that has gone missing is appended.
  void OnExpanded(const Area& oldArea, const Area& newArea) override;

 private:
  Common::Guid region_;
  File& file_;
};

}  // namespace Vhdx
