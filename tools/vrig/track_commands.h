// The vrig track command family: the host library's file tracker from the
// command line. For tools/vrig only: main dispatches to TrackCommand.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vellumrig/file_tracker.h"

namespace vrig {

// `args` follow "track": the subcommand and its arguments.
int TrackCommand(const std::vector<std::string>& args);

// The tracker kept in the database at `database`; throws what keeps it shut.
std::unique_ptr<Host::TrackingHost> OpenTracker(const std::string& database);

}  // namespace vrig
