#include "processor/shutdown.h"

#include <atomic>

#include "common/resources/catalogue.h"
#include "common/trace.h"
#include "processor/meta_class.h"
#include "processor/singleton.h"

namespace Processor {
namespace {

std::atomic<bool> g_started{false};

// Runs the routine when the module is unloaded or the process ends.
struct AtUnload {
  ~AtUnload() { Shutdown(); }
} g_atUnload;

}  // namespace

void MarkFrameworkStarted() noexcept { g_started.store(true, std::memory_order_release); }
bool FrameworkStarted() noexcept { return g_started.load(std::memory_order_acquire); }

void Shutdown() {
  Common::SetTraceLevel(6);
  if (g_started.exchange(false, std::memory_order_acq_rel)) ShutdownSingletons();
  DestroyMetaClasses();
  Common::ShutdownMessageCatalogue();
}

}  // namespace Processor
