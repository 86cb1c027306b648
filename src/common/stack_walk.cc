#include "common/stack_walk.h"

#include <execinfo.h>

#include <cstdlib>
#include <vector>

#include "common/mutex.h"

namespace Common {

void WalkStack(StackFrameCallback callback, void* user, int maximumFrames) {
  if (!callback || maximumFrames <= 0) return;
  static auto* lock = new Mutex;  // never destroyed: assertions may walk at process end
  MutexGuard guard(*lock);
  std::vector<void*> frames(static_cast<std::size_t>(maximumFrames) + 1);
  // One more frame than asked: this function's own frame is not reported.
  const int count = backtrace(frames.data(), maximumFrames + 1);
  char** texts = backtrace_symbols(frames.data(), count);
  for (int i = 1; i < count; ++i) {
    if (!callback(i - 1, texts ? texts[i] : "?", user)) break;
  }
  std::free(texts);
}

}  // namespace Common
