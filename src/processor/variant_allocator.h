// Processor::Variant::Allocator: the recycling pool of the strings that
// variants own, ten wide and ten narrow at most. Module-internal.
//
// Formatting one message makes and drops many variants; with the pool the
// steady state allocates nothing. The free counts are read without the lock
// first: a wrong guess costs one allocation, never a lost or doubled string.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "processor/protected_object.h"
#include "processor/singleton.h"
#include "processor/variant.h"

namespace Processor {

class Variant::Allocator final : public SingletonShutdown<Variant::Allocator>,
                                 public ProtectedObject {
 public:
  static constexpr int kMostFree = 10;

  ~Allocator() override;

  String* GetString(const icu::UnicodeString& source);
  void ReturnString(String* string) noexcept;
  std::string* GetNarrow(std::string_view source);
  void ReturnNarrow(std::string* string) noexcept;

  int FreeStrings() const { return freeStrings_.load(std::memory_order_relaxed); }
  int FreeNarrows() const { return freeNarrows_.load(std::memory_order_relaxed); }

 private:
  friend class Singleton<Variant::Allocator>;
  Allocator() = default;

  template <class T>
  T* Take(T* (&list)[kMostFree], std::atomic<int>& count);
  template <class T>
  bool Put(T* (&list)[kMostFree], std::atomic<int>& count, T* item) noexcept;

  String* strings_[kMostFree] = {};
  std::string* narrows_[kMostFree] = {};
  std::atomic<int> freeStrings_{0};
  std::atomic<int> freeNarrows_{0};
};

}  // namespace Processor
