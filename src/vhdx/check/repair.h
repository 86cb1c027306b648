// Vhdx::RepairContainer: fixes what a check found and what can be fixed
// without losing anything, on a file opened for writing (and so locked).
// Module-internal; vrig's check --repair uses it.
#pragma once

#include <string>
#include <vector>

#include "vellumrig/file.h"
#include "vhdx/check/check.h"

namespace Vhdx {

// Acts on the repairable findings of `report`, which must come from a check
// of this same file just before; corruption is left as it is. Returns one
// line per repair made. In this order: both header copies rewritten from
// the one in force (a damaged copy, a tie, a log GUID no entry carries,
// which is cleared); the log replayed; a damaged region table copy
// rewritten from the other; stale sector bitmap bits cleared, unless the
// report also found corruption (their places come from the BAT). The file
// is flushed at the end.
std::vector<std::string> RepairContainer(rio_file& file, const CheckReport& report);

}  // namespace Vhdx
