// Vhdx::ExpansionMonitor: told when an expandable region has grown, after
// its content is in the new place, so that it can record the new place (the
// region table, for the metadata region). Module-internal interface.
#pragma once

#include "vhdx/file/area.h"

namespace Vhdx {

class ExpansionMonitor {
 public:
  ExpansionMonitor() = default;
  ExpansionMonitor(const ExpansionMonitor&) = delete;
  ExpansionMonitor& operator=(const ExpansionMonitor&) = delete;
  virtual ~ExpansionMonitor() = default;

  virtual void OnExpanded(const Area& oldArea, const Area& newArea) = 0;
};

}  // namespace Vhdx
