// The vrig track command family: the host library's file tracker from the
// command line. For tools/vrig only: main dispatches to TrackCommand.
#pragma once

#include <string>
#include <vector>

namespace vrig {

// `args` follow "track": the subcommand and its arguments.
int TrackCommand(const std::vector<std::string>& args);

}  // namespace vrig
