// Weak references: slots that refer to an object without owning it.
// Module-internal.
//
// An object that is watched gets a GcHolder in its _GCData, and the holder a
// RefProxy that outlives the object: the object's last release marks the
// proxy Dead under the proxy lock, so a read through a slot either takes a
// counted reference to a live object or leaves its argument empty.
//
// A GcRef slot has a kind: 7 watches its target through the proxy, 5 is a
// plain link with no proxy (the singleton list uses it). The slot's owner
// keeps the target itself; the slot calls back with (owner, operation,
// argument) to assign, clear or read it.
#pragma once

#include <atomic>
#include <cstdint>

#include "vellumrig/ref.h"

namespace Processor {

struct RefProxy {
  std::atomic<std::int32_t> RefCount{1};  // the holder's, plus one per watching slot
  bool Dead = false;

  std::int32_t GetRefCount() const { return RefCount.load(std::memory_order_relaxed); }
};

// The content of _GCData. Detach comes first: RefObject's inline last
// release and destructor find it there.
struct GcHolder {
  GcDetachRoutine Detach;
  std::atomic<RefProxy*> Proxy{nullptr};
};

inline constexpr std::int32_t kGcRefPlain = 5;
inline constexpr std::int32_t kGcRefWatching = 7;

enum GcOperation : int { GcAssign = 1, GcClear = 2, GcRead = 3 };
using GcCallback = void (*)(void* owner, int operation, void* argument);

struct GcRef {
  RefProxy* Proxy;  // null unless the kind is 7 and a target is set
  std::int32_t Kind;
  void* Owner;
  GcCallback Callback;
};

// The object's holder, made on first use; null for a null object.
GcHolder* GetGcData(RefObject* object);
// The holder's proxy, made on first use.
RefProxy* GetProxy(GcHolder* holder);

GcRef* GcRefCreate(GcHolder* holder, std::int32_t kind, void* owner, GcCallback callback);
void GcRefAssign(GcRef* ref, GcHolder* holder, void* argument);
void GcRefClear(GcRef* ref);
void GcRefRead(GcRef* ref, void* argument);
void GcRefDestroy(GcRef* ref);

// Tells the watchers of `object` that it is gone; frees the holder itself
// only when asked (the destructor does, the last release does not).
void DetachGcData(RefObject* object, bool freeHolder);

// A typed weak reference to a RefObject-derived T.
template <class T>
class WeakRef {
 public:
  WeakRef() : ref_(GcRefCreate(nullptr, kGcRefWatching, this, &Callback)) {}
  explicit WeakRef(T* target) : WeakRef() { Assign(target); }
  ~WeakRef() { GcRefDestroy(ref_); }
  WeakRef(const WeakRef&) = delete;
  WeakRef& operator=(const WeakRef&) = delete;

  void Assign(T* target) { GcRefAssign(ref_, target ? GetGcData(target) : nullptr, target); }
  void Clear() { GcRefClear(ref_); }
  // A counted reference while the target lives; empty once it is gone.
  AutoRef<T> Lock() const {
    AutoRef<T> out;
    GcRefRead(ref_, &out);
    return out;
  }

 private:
  static void Callback(void* owner, int operation, void* argument) {
    auto* self = static_cast<WeakRef*>(owner);
    switch (operation) {
      case GcAssign: self->target_ = static_cast<T*>(argument); break;
      case GcClear: self->target_ = nullptr; break;
      case GcRead:
        // TryAddRef: a target whose count already reached 0 is never revived.
        if (self->target_ && TryAddRef(self->target_))
          *static_cast<AutoRef<T>*>(argument) = AutoRef<T>::Adopt(self->target_);
        break;
    }
  }

  T* target_ = nullptr;
  GcRef* ref_;
};

}  // namespace Processor
