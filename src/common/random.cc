#include "common/random.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>

#include "common/assert.h"

namespace Common {

bool GetRandomBytes(void* buffer, std::size_t count, bool strict) {
  auto* out = static_cast<unsigned char*>(buffer);
  std::size_t done = 0;
  while (done < count) {
    const ssize_t n = getrandom(out + done, count - done, 0);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      break;
    }
  }
  if (done == count) return true;
  Assert("false", "core\\common\\random", 154);
  if (strict) return false;
  static std::once_flag seeded;
  std::call_once(seeded, [] { std::srand(static_cast<unsigned>(std::time(nullptr))); });
  for (std::size_t i = done; i < count; ++i) out[i] = static_cast<unsigned char>(std::rand());
  return true;
}

}  // namespace Common
