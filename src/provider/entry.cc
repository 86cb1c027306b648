// The module's only export.
#include "common/assert.h"
#include "common/logging_bind.h"
#include "common/site.h"
#include "provider/errors.h"
#include "provider/server.h"

extern "C" __attribute__((visibility("default"))) void SafeOpenVirtualServer(
    Common::Error& error, std::int32_t type,
    Processor::AutoRef<VirtualWareRaw::SafeVirtualServer>& server) {
  try {
    // The host's first call is where the module's trace lines get their
    // destination; before it the module has traced nothing.
    Logging::RegisterLoggingSink();
    if (!VR_ASSERT(type == VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC)) {
      error = Common::MessageError(VR_SITE, VirtualWareRaw::kOpenServerFailed);
      return;
    }
    server = Processor::MakeRef<VirtualWareRaw::SafeVirtualServer, VirtualWareRaw::MSVirtualPCImpl>();
    error = Common::NoError;
  } catch (const Common::Error& e) {
    error = e;
  }
}

// The export must keep the type a host compiles against.
static_assert(std::is_same_v<decltype(SafeOpenVirtualServer), SafeOpenVirtualServerFn>);
