// The check that stands wherever an invariant is asserted, and the policy
// that decides what a failure does. Module-internal.
//
// A failed assertion never crashes by itself: by default it is written to
// standard error with a stack walk, sent to tracing, and the program goes
// on. The environment can change that: KELVARA_SAFE_ASSERT holds the policy
// (a hexadecimal word, or tokens "break debug log event msgbox abort stack"
// separated by spaces), KELVARA_SAFE_ASSERT_LOGFILE the log target ("stdout",
// "stderr" or a file name). Both are read once, at the first assertion.
// VR_ASSERT yields whether the expression held, so a caller can take its
// fallback path.
#pragma once

#include <cstdint>

namespace Common {

// The bits of the policy word.
enum AssertPolicyBits : int {
  kAssertBreak = 0x01,   // break into an attached debugger
  kAssertDebug = 0x02,   // the debugger's output channel
  kAssertLog = 0x04,     // the log target
  kAssertEvent = 0x08,   // the event sink
  kAssertMsgBox = 0x10,  // ask the user
  kAssertAbort = 0x20,   // abort the process
  kAssertStack = 0x40,   // add a stack walk to the chosen outputs
};
inline constexpr int kAssertDefaultPolicy = 0x4E;
inline constexpr int kAssertOff = -1;

// Reports "Assertion failed: <expression>, file <file>, line <line>".
// Returns 1 when the caller has failed the assertion, 0 when it is to be
// taken as passed.
int Assert(const char* expression, const char* file, int line) noexcept;

// Applies the policy to a failure; `text` is null when it did not fit its
// buffer. Returns as Assert does.
int AssertPolicy(const char* expression, const char* file, int line, const char* text) noexcept;

// The policy word in force, read from the environment at the first call.
int GetAssertPolicy() noexcept;

// Where "event" sends the text: called with (5, 0, 27, text). Tracing sets
// it when its first sink is registered.
using AssertSink = void (*)(int level, std::uint32_t module, std::uint32_t code, const char* text);
void SetAssertSink(AssertSink sink) noexcept;

}  // namespace Common

#define VR_ASSERT(expression) \
  (static_cast<bool>(expression) || (::Common::Assert(#expression, __FILE__, __LINE__), false))
