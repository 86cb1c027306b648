#include "vhdx/invalid_log_entry.h"

#include "common/site.h"
#include "vhdx/errors.h"

namespace Vhdx {

void InvalidLogEntry::ThrowAccessToInvalid() { throw Common::MessageError(VR_SITE, kInvalidLogEntry); }

}  // namespace Vhdx
