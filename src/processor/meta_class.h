// InterfaceMetaClass<I>: the meta-class of one interface, made once at first
// use under the meta-class lock and destroyed at shutdown. Module-internal.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/mutex.h"
#include "vellumrig/ref.h"

namespace Processor {

Common::Mutex& MetaClassLock();
// Links a new meta-class into the process-wide list; the caller holds the lock.
void LinkMetaClass(MetaClass* meta);
// Destroys every meta-class of the list (the shutdown routine's last step).
void DestroyMetaClasses();

template <class I>
class InterfaceMetaClass final : public MetaClass {
 public:
  static MetaClass* Instance() {
    MetaClass* meta = instance_.load(std::memory_order_acquire);
    if (meta) return meta;
    Common::MutexGuard guard(MetaClassLock());
    meta = instance_.load(std::memory_order_relaxed);
    if (!meta) {
      meta = new InterfaceMetaClass;
      LinkMetaClass(meta);
      instance_.store(meta, std::memory_order_release);
    }
    return meta;
  }

  ~InterfaceMetaClass() override { instance_.store(nullptr, std::memory_order_release); }

  std::uint32_t GetId() const override { return I::InterfaceId; }
  RefObject* GetBase(void* pointer) override {
    return pointer ? static_cast<RefObject*>(static_cast<I*>(pointer)) : nullptr;
  }
  const RefObject* GetBase(const void* pointer) const override {
    return pointer ? static_cast<const RefObject*>(static_cast<const I*>(pointer)) : nullptr;
  }
  void Cast(InterfaceRef& out, std::uint32_t id, void* source) override {
    out = InterfaceRef{};
    if (!source) return;
    if (id == I::InterfaceId) {
      Processor::AddRef(GetBase(source));
      out = InterfaceRef{source, this};
      return;
    }
    static_cast<Interface*>(static_cast<I*>(source))->GetInterface(out, id);
  }

 private:
  InterfaceMetaClass() = default;
  static inline std::atomic<MetaClass*> instance_{nullptr};
};

}  // namespace Processor
