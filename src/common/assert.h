// The check that stands wherever an invariant is asserted. Module-internal.
//
// A failed assertion never crashes by itself: it goes to one routine that
// reports it, and the program goes on. VR_ASSERT yields whether the
// expression held, so a caller can take its fallback path.
#pragma once

namespace Common {

// Reports "Assertion failed: <expression>, file <file>, line <line>".
// Returns 1 when the caller has failed the assertion, 0 when it is to be
// taken as passed.
int Assert(const char* expression, const char* file, int line) noexcept;

}  // namespace Common

#define VR_ASSERT(expression) \
  (static_cast<bool>(expression) || (::Common::Assert(#expression, __FILE__, __LINE__), false))
