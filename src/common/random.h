// Random bytes from the kernel. Used by the module.
#pragma once

#include <cstddef>

namespace Common {

// Fills the buffer from the kernel's generator. When that fails (it does
// not on any supported kernel), asserts; then `strict` gives false, and
// otherwise the buffer is filled from rand() and the answer is true.
bool GetRandomBytes(void* buffer, std::size_t count, bool strict);

}  // namespace Common
