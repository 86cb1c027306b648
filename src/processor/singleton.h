// Process-wide single instances of RefObject classes. Module-internal.
//
// Singleton<T, Base>: T derives from it; Singleton<T>::Instance() makes the
// instance at first use and hands out counted references. The instance dies
// at its last release, and the next Instance() makes a new one.
// SingletonShutdown<T, Base>: the same, but the singleton list holds a
// reference, so the instance lives until the shutdown routine.
//
// Every live singleton is chained, in creation order, in one process-wide
// list (SingletonBase), which the shutdown routine walks.
#pragma once

#include <atomic>

#include "common/mutex.h"
#include "processor/shutdown.h"
#include "processor/weak.h"
#include "vellumrig/ref.h"

namespace Processor {

// The list node. Its links are plain GcRef slots (kind 5).
class SingletonNode {
 public:
  SingletonNode(const SingletonNode&) = delete;
  SingletonNode& operator=(const SingletonNode&) = delete;

 protected:
  SingletonNode(RefObject* self, bool listHoldsReference);
  ~SingletonNode();

 private:
  friend void ShutdownSingletons();
  friend RefObject* FirstSingleton();
  friend class SingletonList;

  static void LinkCallback(void* owner, int operation, void* argument);

  RefObject* self_;
  bool holds_;
  bool linked_ = false;
  SingletonNode* previousNode_ = nullptr;  // targets of the two link slots
  SingletonNode* nextNode_ = nullptr;
  GcRef* previous_;
  GcRef* next_;
};

template <int N>
class SingletonBase : public SingletonNode {
 protected:
  using SingletonNode::SingletonNode;
};

// Unlinks every singleton, dropping the list's references, and marks the
// list as shut down: a singleton made later is not linked.
void ShutdownSingletons();
// The first singleton of the list, null when empty or shut down. For tests
// and diagnosis.
RefObject* FirstSingleton();

template <class T, class Base = RefObject, int N = 0>
class Singleton : public Base, public SingletonBase<N> {
 public:
  static AutoRef<T> Instance() {
    Common::MutexGuard guard(Lock());
    T* p = instance_.load(std::memory_order_acquire);
    // An instance whose count already reached 0 is on its way out and is
    // never revived: it is replaced, and its last release will not clear
    // the pointer to its successor.
    if (p && TryAddRef(p)) return AutoRef<T>::Adopt(p);
    MarkFrameworkStarted();
    p = new T();
    instance_.store(p, std::memory_order_release);
    return AutoRef<T>::Adopt(p);
  }

  // The current instance without a reference, for tests and diagnosis.
  static T* Peek() { return instance_.load(std::memory_order_acquire); }

 protected:
  Singleton() : SingletonBase<N>(this, false) {}
  explicit Singleton(bool listHoldsReference) : SingletonBase<N>(this, listHoldsReference) {}

  void OnLastRelease() override {
    {
      Common::MutexGuard guard(Lock());
      T* expected = static_cast<T*>(this);
      instance_.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
    }
    Base::OnLastRelease();
  }

 private:
  static Common::Mutex& Lock() {
    static auto* lock = new Common::Mutex;  // never destroyed: used at process end
    return *lock;
  }
  static inline std::atomic<T*> instance_{nullptr};
};

template <class T, class Base = RefObject, int N = 0>
class SingletonShutdown : public Singleton<T, Base, N> {
 protected:
  SingletonShutdown() : Singleton<T, Base, N>(true) {}
};

}  // namespace Processor
