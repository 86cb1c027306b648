// Processor::ProtectedObject: a base that owns a mutex, used beside
// RefObject by objects whose state is shared between threads.
// Module-internal.
#pragma once

#include <memory>

#include "common/mutex.h"

namespace Processor {

class ProtectedObject {
 public:
  ProtectedObject() : mutex_(std::make_unique<Common::Mutex>()) {}
  ProtectedObject(const ProtectedObject&) = delete;
  ProtectedObject& operator=(const ProtectedObject&) = delete;

  Common::Mutex& GetMutex() const { return *mutex_; }

 private:
  std::unique_ptr<Common::Mutex> mutex_;
};

}  // namespace Processor
