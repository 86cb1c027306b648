// Common::Mutex, the process-local recursive lock, and its guard.
// Used by the module and the host library.
//
// The lock knows its owner, so that two misuses are caught by assertions
// instead of undefined behaviour: unlocking from a thread that does not hold
// it (refused), and destroying it while held.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace Common {

class Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock();
  // Refused, with an assertion, from a thread that does not hold the lock.
  void Unlock();
  bool TryLock();
  bool HeldByThisThread() const;

  // For std::lock_guard and std::unique_lock.
  void lock() { Lock(); }
  void unlock() { Unlock(); }

 private:
  pthread_mutex_t mutex_;
  std::atomic<std::uint64_t> owner_{0};  // a thread's number, 0 when free
  std::uint32_t depth_ = 0;
};

class MutexGuard {
 public:
  explicit MutexGuard(Mutex& m) : m_(m) { m_.Lock(); }
  ~MutexGuard() { m_.Unlock(); }
  MutexGuard(const MutexGuard&) = delete;
  MutexGuard& operator=(const MutexGuard&) = delete;

 private:
  Mutex& m_;
};

// A number for the calling thread, never 0.
std::uint64_t CurrentThreadNumber() noexcept;

}  // namespace Common
