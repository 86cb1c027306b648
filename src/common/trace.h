// The process-wide trace switch: a level, a default sink and the composite
// of registered sinks. Module-internal.
//
// Levels are numbers; lines below the level are dropped. 2 is the default.
// Shutdown raises it to 6 so that nothing ordinary is traced while the
// framework goes down. With no sink registered nothing is shown.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "vellumrig/error.h"

namespace Common {

class TraceLogic;

void SetTraceLevel(int level) noexcept;
int GetTraceLevel() noexcept;

// When set, the default sink is skipped; registered sinks still get lines.
void SetTraceSilent(bool silent) noexcept;

// Registering and unregistering belong to set-up and tear-down: the state
// is read without a lock by every trace call. The first registration makes
// the composite and points assertion events at tracing; unregistering the
// last sink destroys the composite. A tagged sink gets every line, with
// its tag, whatever the level.
void RegisterTraceLogic(TraceLogic* sink);
void RegisterTraceLogic(TraceLogic* sink, std::uint32_t tag);
void UnregisterTraceLogic(TraceLogic* sink);

// `text` is zero-terminated.
void Trace(int level, std::uint32_t module, std::uint32_t code, const char16_t* text) noexcept;
void TraceErrorValue(int level, const Error& error) noexcept;

// Traces a message: the pattern of a catalogue entry filled with `args`.
// Below the level nothing is formatted.
void TraceMessage(int level, std::uint32_t module, std::uint32_t code, std::uint32_t entry,
                  std::initializer_list<std::u16string_view> args) noexcept;

// The facility the provider's trace lines name.
inline constexpr std::uint32_t kProviderTraceModule = 83;

}  // namespace Common
