// Telling whether the process that left a mark is still the one running
// under its pid. Host library only; the tracker uses it for its
// "open for writing" marks.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace Host::detail {

// The start time of `pid` in clock ticks since boot, which together with the
// pid names one process even after the pid is reused. False when no live
// process has that pid (a zombie counts as gone).
bool ProcessStartTime(pid_t pid, std::uint64_t& startTime);

}  // namespace Host::detail
