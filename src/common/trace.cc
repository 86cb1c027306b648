#include "common/trace.h"

#include <atomic>
#include <memory>
#include <string>

#include "common/assert.h"
#include "common/message_error.h"
#include "common/message_table.h"
#include "common/mutex.h"
#include "common/trace_logic.h"
#include "vellumrig/error_text.h"

namespace Common {

void CompositeTraceLogic::Remove(TraceLogic* sink) {
  plain_.erase(sink);
  for (auto it = tagged_.begin(); it != tagged_.end();) it = it->first == sink ? tagged_.erase(it) : ++it;
}

template <class Call>
void CompositeTraceLogic::Dispatch(int level, const Call& call) {
  const bool passes = level >= GetTraceLevel();
  for (TraceLogic* sink : plain_)
    if (passes || sink->IgnoresLevel()) call(*sink, 0);
  for (const auto& [sink, tag] : tagged_) call(*sink, tag);
}

void CompositeTraceLogic::Trace(std::uint32_t, int level, std::uint32_t module, std::uint32_t code,
                                const char16_t* text) {
  Dispatch(level, [&](TraceLogic& sink, std::uint32_t tag) { sink.Trace(tag, level, module, code, text); });
}

void CompositeTraceLogic::TraceData(std::uint32_t, int level, std::uint32_t module, std::uint32_t code,
                                    const char16_t* text, const void* data, std::size_t size) {
  Dispatch(level, [&](TraceLogic& sink, std::uint32_t tag) {
    sink.TraceData(tag, level, module, code, text, data, size);
  });
}

void CompositeTraceLogic::TraceError(std::uint32_t, int level, const Error& error) {
  Dispatch(level, [&](TraceLogic& sink, std::uint32_t tag) { sink.TraceError(tag, level, error); });
}

namespace {

void DefaultTrace(int, std::uint32_t, std::uint32_t, const char16_t*) {}

void DefaultTraceError(int, const Error& error) {
  // Reads what a real destination would print; shows nothing.
  std::u16string text = error.GetText();
  static_cast<void>(error.Code());
  static_cast<void>(text);
}

struct DefaultSink {
  void (*Trace)(int level, std::uint32_t module, std::uint32_t code, const char16_t* text);
  void (*TraceData)(int level, std::uint32_t module, std::uint32_t code, const char16_t* text,
                    const void* data, std::size_t size);
  void (*TraceError)(int level, const Error& error);
};

constexpr DefaultSink kDefaultSink{
    DefaultTrace, [](int, std::uint32_t, std::uint32_t, const char16_t*, const void*, std::size_t) {},
    DefaultTraceError};

std::atomic<int> g_traceLevel{2};
std::atomic<bool> g_silent{false};
std::atomic<CompositeTraceLogic*> g_composite{nullptr};

Mutex& RegistrationLock() {
  static auto* lock = new Mutex;  // never destroyed: sinks may unregister at process end
  return *lock;
}

// Assertion events arrive as narrow text, at level 5 with code 27.
void AssertEvent(int level, std::uint32_t module, std::uint32_t code, const char* text) {
  try {
    Trace(level, module, code, FromUtf8(text ? text : "").c_str());
  } catch (...) {
    // An assertion that cannot be traced is still logged by its other outputs.
  }
}

}  // namespace

void SetTraceLevel(int level) noexcept { g_traceLevel.store(level, std::memory_order_relaxed); }
int GetTraceLevel() noexcept { return g_traceLevel.load(std::memory_order_relaxed); }
void SetTraceSilent(bool silent) noexcept { g_silent.store(silent, std::memory_order_relaxed); }

namespace {

template <class AddTo>
void Register(const AddTo& add) {
  MutexGuard guard(RegistrationLock());
  if (CompositeTraceLogic* composite = g_composite.load(std::memory_order_acquire)) {
    add(*composite);
    return;
  }
  // Filled before it is published, so a trace on another thread sees either
  // no composite or a complete one.
  auto composite = std::make_unique<CompositeTraceLogic>();
  add(*composite);
  g_composite.store(composite.release(), std::memory_order_release);
  SetAssertSink(AssertEvent);
}

}  // namespace

void RegisterTraceLogic(TraceLogic* sink) {
  Register([sink](CompositeTraceLogic& composite) { composite.Add(sink); });
}

void RegisterTraceLogic(TraceLogic* sink, std::uint32_t tag) {
  Register([sink, tag](CompositeTraceLogic& composite) { composite.AddTagged(sink, tag); });
}

void UnregisterTraceLogic(TraceLogic* sink) {
  MutexGuard guard(RegistrationLock());
  CompositeTraceLogic* composite = g_composite.load(std::memory_order_acquire);
  if (!composite) return;
  composite->Remove(sink);
  if (composite->Empty()) {
    g_composite.store(nullptr, std::memory_order_release);
    delete composite;
  }
}

void Trace(int level, std::uint32_t module, std::uint32_t code, const char16_t* text) noexcept {
  try {
    if (level >= GetTraceLevel() && !g_silent.load(std::memory_order_relaxed))
      kDefaultSink.Trace(level, module, code, text);
    if (CompositeTraceLogic* composite = g_composite.load(std::memory_order_acquire))
      composite->Trace(0, level, module, code, text);
  } catch (...) {
    // Tracing never fails its caller.
  }
}

void TraceErrorValue(int level, const Error& error) noexcept {
  try {
    if (level >= GetTraceLevel() && !g_silent.load(std::memory_order_relaxed))
      kDefaultSink.TraceError(level, error);
    if (CompositeTraceLogic* composite = g_composite.load(std::memory_order_acquire))
      composite->TraceError(0, level, error);
  } catch (...) {
  }
}

void TraceMessage(int level, std::uint32_t module, std::uint32_t code, std::uint32_t entry,
                  std::initializer_list<std::u16string_view> args) noexcept {
  if (level < GetTraceLevel()) return;
  try {
    const std::u16string_view pattern = MessageText(entry);
    const std::u16string text = args.size() ? FillPlaceholders(pattern, args) : std::u16string(pattern);
    Trace(level, module, code, text.c_str());
  } catch (...) {
  }
}

}  // namespace Common
