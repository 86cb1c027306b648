// The process-wide trace level. Module-internal.
//
// Levels are numbers; lines below the level are dropped. 2 is the default.
// Shutdown raises it to 6 so that nothing ordinary is traced while the
// framework goes down.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "vellumrig/error.h"

namespace Common {

void SetTraceLevel(int level) noexcept;
int GetTraceLevel() noexcept;

// Traces an error at `level`. Nothing receives trace lines until a sink is
// registered, so this only passes the level test for now.
void TraceErrorValue(int level, const Error& error) noexcept;

// Traces a message: the pattern of a catalogue entry filled with `args`.
// Below the level nothing is formatted.
void TraceMessage(int level, std::uint32_t module, std::uint32_t code, std::uint32_t entry,
                  std::initializer_list<std::u16string_view> args) noexcept;

// The facility the provider's trace lines name.
inline constexpr std::uint32_t kProviderTraceModule = 83;

}  // namespace Common
