// The process-wide trace level. Module-internal.
//
// Levels are numbers; lines below the level are dropped. 2 is the default.
// Shutdown raises it to 6 so that nothing ordinary is traced while the
// framework goes down.
#pragma once

namespace Common {

void SetTraceLevel(int level) noexcept;
int GetTraceLevel() noexcept;

}  // namespace Common
