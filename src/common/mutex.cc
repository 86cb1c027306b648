#include "common/mutex.h"

#include "common/assert.h"

namespace Common {

std::uint64_t CurrentThreadNumber() noexcept {
  static std::atomic<std::uint64_t> next{1};
  thread_local const std::uint64_t number = next.fetch_add(1, std::memory_order_relaxed);
  return number;
}

Mutex::Mutex() {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&mutex_, &attr);
  pthread_mutexattr_destroy(&attr);
}

Mutex::~Mutex() {
  if (owner_.load(std::memory_order_relaxed) != 0)
    Assert("MUTEX_DATA.OwningThread == 0 || (GetVersion() & 0x80000000)", __FILE__, __LINE__);
  pthread_mutex_destroy(&mutex_);
}

void Mutex::Lock() {
  pthread_mutex_lock(&mutex_);
  owner_.store(CurrentThreadNumber(), std::memory_order_relaxed);
  ++depth_;
}

bool Mutex::TryLock() {
  if (pthread_mutex_trylock(&mutex_) != 0) return false;
  owner_.store(CurrentThreadNumber(), std::memory_order_relaxed);
  ++depth_;
  return true;
}

void Mutex::Unlock() {
  if (owner_.load(std::memory_order_relaxed) != CurrentThreadNumber()) {
    Assert("*reinterpret_cast<DWORD*>(&MUTEX_DATA.OwningThread) == GetCurrentThreadId() || "
           "(GetVersion() & 0x80000000)",
           __FILE__, __LINE__);
    return;
  }
  if (--depth_ == 0) owner_.store(0, std::memory_order_relaxed);
  pthread_mutex_unlock(&mutex_);
}

bool Mutex::HeldByThisThread() const {
  return owner_.load(std::memory_order_relaxed) == CurrentThreadNumber();
}

}  // namespace Common
