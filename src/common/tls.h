// Common::Tls: thread-local slots, one of which may have a callback that
// runs with the slot's value when a thread ends. Used by the module.
#pragma once

#include <cstdint>

namespace Common {

class Tls {
 public:
  using Callback = void (*)(void* value);
  static constexpr std::uint32_t OUT_OF_INDEXES = 0xFFFFFFFFu;

  // A new slot, or OUT_OF_INDEXES. Only one slot of the process may carry a
  // callback.
  static std::uint32_t Alloc(Callback callback = nullptr);
  static void Free(std::uint32_t key);
  static void* Get(std::uint32_t key);
  static bool Set(std::uint32_t key, void* value);
};

}  // namespace Common
