// Walking the calling thread's stack, for assertions and diagnosis.
// Used by the module.
#pragma once

namespace Common {

// Calls `callback(frame number, text, user)` for at most `maximumFrames`
// frames, from the caller outwards; a callback that returns false ends the
// walk. Walks are serialised by one process-wide lock.
using StackFrameCallback = bool (*)(int frame, const char* text, void* user);
void WalkStack(StackFrameCallback callback, void* user, int maximumFrames);

// The process never runs in a pre-installation environment here.
inline bool IsMiniNT() { return false; }

}  // namespace Common
