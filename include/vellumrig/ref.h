// Reference-counted objects and interfaces: the binary contract between a
// host and the module.
//
// Every object that crosses the boundary is a Processor::RefObject reached
// through interface classes that hold Processor::Interface as a virtual base,
// so an object with several interfaces has one shared count. The count sits
// at a fixed place, and both sides change it with their own atomic
// operations: a host adds and releases references with the inline code below
// and reaches module code only through OnLastRelease and the virtual
// operations of the objects themselves.
#pragma once

#include "vellumrig/version.h"

#include <atomic>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace Processor {

class MetaClass;

// An interface pointer and the meta-class that knows its interface. The null
// pair means "not implemented".
struct InterfaceRef {
  void* Pointer = nullptr;
  MetaClass* Meta = nullptr;
};

class RefObject;

// The routine that tells an object's weak watchers it is gone. Once a weak
// reference was needed, _GCData points to a holder that starts with this
// routine, so code compiled into a host reaches it without linking the
// module.
using GcDetachRoutine = void (*)(RefObject* object, bool freeHolder);

// Every virtual operation of the base classes is inline: a host gets its own
// copy of their tables and type information and needs no symbol of the
// module.
class RefObject {
 public:
  RefObject(const RefObject&) = delete;
  RefObject& operator=(const RefObject&) = delete;

  // An object destroyed by other means than its last release still informs
  // its watchers, and frees its holder.
  virtual ~RefObject() {
    if (_GCData) (*static_cast<GcDetachRoutine*>(_GCData))(this, true);
  }
  // Runs when the count goes from 1 to 0: informs weak watchers, then
  // deletes the object. Singletons override it.
  virtual void OnLastRelease() {
    if (_GCData) (*static_cast<GcDetachRoutine*>(_GCData))(this, false);
    delete this;
  }

  std::atomic<std::int32_t> RefCount;
  void* _GCData;  // the object's weak-reference holder, once needed

 protected:
  RefObject() noexcept : RefCount(1), _GCData(nullptr) {}
};

inline void AddRef(const RefObject* object) noexcept {
  if (object) const_cast<RefObject*>(object)->RefCount.fetch_add(1, std::memory_order_relaxed);
}

// Adds a reference only while the object is alive (count at least 1).
inline bool TryAddRef(const RefObject* object) noexcept {
  if (!object) return false;
  auto& count = const_cast<RefObject*>(object)->RefCount;
  std::int32_t seen = count.load(std::memory_order_relaxed);
  while (seen >= 1) {
    if (count.compare_exchange_weak(seen, seen + 1, std::memory_order_acquire,
                                    std::memory_order_relaxed))
      return true;
  }
  return false;
}

inline void Release(const RefObject* object) noexcept {
  if (object && const_cast<RefObject*>(object)->RefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
    const_cast<RefObject*>(object)->OnLastRelease();
}

class Interface : public RefObject {
 public:
  // Adds a reference and writes the pair when the object implements `id`;
  // otherwise writes the null pair and adds nothing.
  virtual void GetInterface(InterfaceRef& out, std::uint32_t id) = 0;
  // The meta-class of the object's primary interface.
  virtual MetaClass* GetMetaClass() = 0;
};

// Tells a generic holder how to count and cast the pointers of one
// interface. One instance per interface lives in the module.
class MetaClass {
 public:
  MetaClass(const MetaClass&) = delete;
  MetaClass& operator=(const MetaClass&) = delete;

  virtual ~MetaClass() = default;
  virtual std::uint32_t GetId() const = 0;
  virtual const char* GetName() const { return ""; }
  // Null gives the null pair; the own identifier gives the source itself,
  // counted; any other is asked of the object.
  virtual void Cast(InterfaceRef& out, std::uint32_t id, void* source) {
    out = InterfaceRef{};
    if (!source) return;
    if (id == GetId()) {
      AddRef(source);
      out = InterfaceRef{source, this};
      return;
    }
    if (auto* object = dynamic_cast<Interface*>(GetBase(source))) object->GetInterface(out, id);
  }
  virtual void CastRaw(InterfaceRef& out, std::uint32_t id, void* raw) {
    out = InterfaceRef{};
    if (id != GetId()) return;
    if (raw) AddRef(raw);
    out = InterfaceRef{raw, this};
  }
  virtual RefObject* GetBase(void* pointer) = 0;
  virtual const RefObject* GetBase(const void* pointer) const = 0;
  virtual bool IsWeak() const { return false; }
  virtual void AddRef(void* pointer) { Processor::AddRef(GetBase(pointer)); }
  virtual bool TryAddRef(void* pointer) { return Processor::TryAddRef(GetBase(pointer)); }
  virtual void Release(void* pointer) { Processor::Release(GetBase(pointer)); }

  MetaClass* Next;  // the process-wide list of meta-classes

 protected:
  MetaClass() noexcept : Next(nullptr) {}
};

// The holder of one counted pointer to any RefObject-derived class.
template <class I>
class AutoRef {
 public:
  AutoRef() noexcept : p_(nullptr) {}
  AutoRef(std::nullptr_t) noexcept : p_(nullptr) {}
  // Takes a new reference on `p`.
  explicit AutoRef(I* p) noexcept : p_(p) { Processor::AddRef(Base(p_)); }
  AutoRef(const AutoRef& other) noexcept : p_(other.p_) { Processor::AddRef(Base(p_)); }
  AutoRef(AutoRef&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  template <class J>
  AutoRef(const AutoRef<J>& other) noexcept : p_(other.Get()) { Processor::AddRef(Base(p_)); }
  ~AutoRef() { Processor::Release(Base(p_)); }

  AutoRef& operator=(const AutoRef& other) noexcept {
    Processor::AddRef(Base(other.p_));
    Processor::Release(Base(p_));
    p_ = other.p_;
    return *this;
  }
  AutoRef& operator=(AutoRef&& other) noexcept {
    if (this != &other) {
      Processor::Release(Base(p_));
      p_ = std::exchange(other.p_, nullptr);
    }
    return *this;
  }

  // Takes over a reference the caller already holds.
  static AutoRef Adopt(I* p) noexcept {
    AutoRef r;
    r.p_ = p;
    return r;
  }
  I* Detach() noexcept { return std::exchange(p_, nullptr); }
  void Reset() noexcept { Processor::Release(Base(std::exchange(p_, nullptr))); }

  I* Get() const noexcept { return p_; }
  I* operator->() const { return Checked(); }
  I& operator*() const { return *Checked(); }
  explicit operator bool() const noexcept { return p_ != nullptr; }
  bool operator==(const AutoRef& other) const noexcept { return p_ == other.p_; }

 private:
  static const RefObject* Base(const I* p) noexcept { return p; }
  I* Checked() const {
    if (!p_) throw std::invalid_argument("Attempt to use null reference.");
    return p_;
  }

  I* p_;
};

// Asks an object for another of its interfaces; an empty holder when it has
// none. `To` must name its identifier as To::InterfaceId.
template <class To, class From>
AutoRef<To> QueryInterface(const AutoRef<From>& from) {
  InterfaceRef ref;
  static_cast<Interface*>(&*from)->GetInterface(ref, To::InterfaceId);
  return AutoRef<To>::Adopt(static_cast<To*>(ref.Pointer));
}

}  // namespace Processor
