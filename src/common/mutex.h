// Common::Mutex, the process-local recursive lock, and its guard.
// Module-internal.
#pragma once

#include <mutex>

namespace Common {

class Mutex {
 public:
  void Lock() { m_.lock(); }
  void Unlock() { m_.unlock(); }
  bool TryLock() { return m_.try_lock(); }

  // For std::lock_guard and std::unique_lock.
  void lock() { Lock(); }
  void unlock() { Unlock(); }

 private:
  std::recursive_mutex m_;
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

}  // namespace Common
