// Common::NonCopyable: a base for objects that have an identity, such as
// registered sinks, and must never be copied. Used by the module.
#pragma once

namespace Common {

class NonCopyable {
 protected:
  NonCopyable() = default;
  ~NonCopyable() = default;

 public:
  NonCopyable(const NonCopyable&) = delete;
  NonCopyable& operator=(const NonCopyable&) = delete;
};

}  // namespace Common
