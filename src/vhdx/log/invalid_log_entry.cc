#include "vhdx/log/invalid_log_entry.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void InvalidLogEntry::ThrowAccessToInvalid() { throw Common::MessageError(VR_SITE, kInvalidLogEntry); }

}  // namespace Vhdx
