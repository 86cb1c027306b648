#include "processor/variant_allocator.h"

namespace Processor {

namespace {

void Empty(String* s) { s->remove(); }
void Empty(std::string* s) { s->clear(); }

}  // namespace

Variant::Allocator::~Allocator() {
  for (int i = 0; i < freeStrings_; ++i) delete strings_[i];
  for (int i = 0; i < freeNarrows_; ++i) delete narrows_[i];
}

template <class T>
T* Variant::Allocator::Take(T* (&list)[kMostFree], std::atomic<int>& count) {
  if (count.load(std::memory_order_relaxed) == 0) return nullptr;
  Common::MutexGuard guard(GetMutex());
  const int n = count.load(std::memory_order_relaxed);
  if (n == 0) return nullptr;  // another thread emptied it first
  count.store(n - 1, std::memory_order_relaxed);
  return list[n - 1];
}

template <class T>
bool Variant::Allocator::Put(T* (&list)[kMostFree], std::atomic<int>& count, T* item) noexcept {
  if (count.load(std::memory_order_relaxed) >= kMostFree) return false;
  Empty(item);
  Common::MutexGuard guard(GetMutex());
  const int n = count.load(std::memory_order_relaxed);
  if (n >= kMostFree) return false;
  list[n] = item;
  count.store(n + 1, std::memory_order_relaxed);
  return true;
}

String* Variant::Allocator::GetString(const icu::UnicodeString& source) {
  if (String* s = Take(strings_, freeStrings_)) {
    *s = source;
    return s;
  }
  return new String(source);
}

void Variant::Allocator::ReturnString(String* string) noexcept {
  if (string && !Put(strings_, freeStrings_, string)) delete string;
}

std::string* Variant::Allocator::GetNarrow(std::string_view source) {
  if (std::string* s = Take(narrows_, freeNarrows_)) {
    try {
      s->assign(source);
    } catch (...) {
      delete s;
      throw;
    }
    return s;
  }
  return new std::string(source);
}

void Variant::Allocator::ReturnNarrow(std::string* string) noexcept {
  if (string && !Put(narrows_, freeNarrows_, string)) delete string;
}

}  // namespace Processor
