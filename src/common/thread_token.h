// The thread's security token, and a scope that runs with the process's own
// identity. Used by the module.
//
// Threads here carry no impersonation token: a ThreadToken is always empty
// and an ImpersonationRemover changes nothing. The classes stay so that code
// written against them keeps its shape.
#pragma once

#include <cstdint>

namespace Common {

class ThreadToken {
 public:
  ThreadToken() = default;
  virtual ~ThreadToken() = default;
  ThreadToken(const ThreadToken&) = delete;
  ThreadToken& operator=(const ThreadToken&) = delete;

  bool HasToken() const { return handle_ != -1; }

 protected:
  std::intptr_t handle_ = -1;
};

class ImpersonationRemover : public ThreadToken {
 public:
  ImpersonationRemover() = default;
  ~ImpersonationRemover() override = default;
};

}  // namespace Common
