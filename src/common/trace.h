// The process-wide trace level. Module-internal.
//
// Levels are numbers; lines below the level are dropped. 2 is the default.
// Shutdown raises it to 6 so that nothing ordinary is traced while the
// framework goes down.
#pragma once

#include "vellumrig/error.h"

namespace Common {

void SetTraceLevel(int level) noexcept;
int GetTraceLevel() noexcept;

// Traces an error at `level`. Nothing receives trace lines until a sink is
// registered, so this only passes the level test for now.
void TraceErrorValue(int level, const Error& error) noexcept;

}  // namespace Common
