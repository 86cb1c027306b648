#include "common/tls.h"

#include <pthread.h>

#include <atomic>

#include "common/assert.h"

namespace Common {
namespace {

std::atomic<Tls::Callback> g_callback{nullptr};
std::atomic<std::uint32_t> g_callbackKey{Tls::OUT_OF_INDEXES};

// The thread library clears the slot before calling; the callback gets the
// value only while it is still the callback's slot.
void AtThreadEnd(void* value) {
  if (Tls::Callback callback = g_callback.load()) callback(value);
}

}  // namespace

std::uint32_t Tls::Alloc(Callback callback) {
  pthread_key_t key;
  if (pthread_key_create(&key, callback ? &AtThreadEnd : nullptr) != 0) return OUT_OF_INDEXES;
  if (callback) {
    VR_ASSERT(g_callback.load() == 0);
    g_callbackKey.store(key);
    g_callback.store(callback);
  }
  return key;
}

void Tls::Free(std::uint32_t key) {
  if (!VR_ASSERT(key != Common::Tls::OUT_OF_INDEXES)) return;
  if (g_callbackKey.load() == key) {
    g_callback.store(nullptr);
    g_callbackKey.store(OUT_OF_INDEXES);
  }
  pthread_key_delete(key);
}

void* Tls::Get(std::uint32_t key) { return pthread_getspecific(key); }

bool Tls::Set(std::uint32_t key, void* value) { return pthread_setspecific(key, value) == 0; }

}  // namespace Common
