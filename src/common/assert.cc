#include "common/assert.h"

#include <cstdio>

namespace Common {

int Assert(const char* expression, const char* file, int line) noexcept {
  char text[540];
  const int n = std::snprintf(text, sizeof text, "Assertion failed: %s, file %s, line %d",
                              expression, file, line);
  if (n > 0 && static_cast<unsigned>(n) < sizeof text) std::fprintf(stderr, "%s\n", text);
  return 1;
}

}  // namespace Common
