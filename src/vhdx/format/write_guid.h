// New write GUIDs for a container's header: random version-4 values.
// Module-internal; the write-GUID renewal and container creation use it.
#pragma once

#include "common/guid.h"

namespace Vhdx {

Common::Guid NewWriteGuid();

}  // namespace Vhdx
