#include "common/trace.h"

#include <atomic>

namespace Common {
namespace {
std::atomic<int> g_traceLevel{2};
}  // namespace

void SetTraceLevel(int level) noexcept { g_traceLevel.store(level, std::memory_order_relaxed); }
int GetTraceLevel() noexcept { return g_traceLevel.load(std::memory_order_relaxed); }

void TraceErrorValue(int level, const Error&) noexcept {
  if (level < GetTraceLevel()) return;
}

void TraceMessage(int level, std::uint32_t, std::uint32_t, std::uint32_t,
                  std::initializer_list<std::u16string_view>) noexcept {
  if (level < GetTraceLevel()) return;
}

}  // namespace Common
