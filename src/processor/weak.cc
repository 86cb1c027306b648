#include "processor/weak.h"

#include "common/assert.h"
#include "common/mutex.h"

namespace Processor {
namespace {

// Never destroyed: a last release may run during process end.
Common::Mutex& ProxyLock() {
  static auto* lock = new Common::Mutex;
  return *lock;
}

Common::Mutex& ObjectTrackingLock() {
  static auto* lock = new Common::Mutex;
  return *lock;
}

// Drops one reference of a proxy; the caller holds the proxy lock or owns
// the only path to it.
void ReleaseProxy(RefProxy* proxy) {
  VR_ASSERT(proxy->GetRefCount() > 0);
  if (proxy->RefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) delete proxy;
}

void DropSlotProxy(GcRef* ref) {
  if (ref->Proxy) {
    ReleaseProxy(ref->Proxy);
    ref->Proxy = nullptr;
  }
}

}  // namespace

GcHolder* GetGcData(RefObject* object) {
  if (!object) return nullptr;
  auto* holder = static_cast<GcHolder*>(
      std::atomic_ref<void*>(object->_GCData).load(std::memory_order_acquire));
  if (holder) return holder;
  Common::MutexGuard guard(ObjectTrackingLock());
  holder = static_cast<GcHolder*>(object->_GCData);
  if (!holder) {
    VR_ASSERT(object->_GCData == 0);
    holder = new GcHolder{&DetachGcData};
    std::atomic_ref<void*>(object->_GCData).store(holder, std::memory_order_release);
  }
  return holder;
}

RefProxy* GetProxy(GcHolder* holder) {
  RefProxy* proxy = holder->Proxy.load(std::memory_order_acquire);
  if (proxy) return proxy;
  Common::MutexGuard guard(ProxyLock());
  proxy = holder->Proxy.load(std::memory_order_acquire);
  if (!proxy) {
    proxy = new RefProxy;
    holder->Proxy.store(proxy, std::memory_order_release);
  }
  VR_ASSERT(proxy->GetRefCount() > 0);
  return proxy;
}

GcRef* GcRefCreate(GcHolder* holder, std::int32_t kind, void* owner, GcCallback callback) {
  auto* ref = new GcRef{nullptr, kind, owner, callback};
  if (holder && kind == kGcRefWatching) {
    Common::MutexGuard guard(ProxyLock());
    ref->Proxy = GetProxy(holder);
    ref->Proxy->RefCount.fetch_add(1, std::memory_order_relaxed);
  }
  return ref;
}

void GcRefAssign(GcRef* ref, GcHolder* holder, void* argument) {
  if (!VR_ASSERT(ref != 0)) return;
  Common::MutexGuard guard(ProxyLock());
  DropSlotProxy(ref);
  if (!VR_ASSERT(ref->Callback != 0)) return;
  ref->Callback(ref->Owner, GcAssign, argument);
  if (holder && ref->Kind == kGcRefWatching) {
    ref->Proxy = GetProxy(holder);
    ref->Proxy->RefCount.fetch_add(1, std::memory_order_relaxed);
  }
}

void GcRefClear(GcRef* ref) {
  if (!VR_ASSERT(ref != 0)) return;
  Common::MutexGuard guard(ProxyLock());
  DropSlotProxy(ref);
  if (ref->Callback) ref->Callback(ref->Owner, GcClear, nullptr);
}

void GcRefRead(GcRef* ref, void* argument) {
  if (!VR_ASSERT(ref != 0)) return;
  Common::MutexGuard guard(ProxyLock());
  if ((!ref->Proxy || !ref->Proxy->Dead) && ref->Callback)
    ref->Callback(ref->Owner, GcRead, argument);
}

void GcRefDestroy(GcRef* ref) {
  if (!ref) return;
  if (ref->Proxy) {
    // The slot may be the proxy's last watcher while the object detaches.
    Common::MutexGuard guard(ProxyLock());
    DropSlotProxy(ref);
  }
  delete ref;
}

void DetachGcData(RefObject* object, bool freeHolder) {
  auto* holder = static_cast<GcHolder*>(object->_GCData);
  if (!holder) return;
  if (RefProxy* proxy = holder->Proxy.exchange(nullptr, std::memory_order_acq_rel)) {
    Common::MutexGuard guard(ProxyLock());
    proxy->Dead = true;
    ReleaseProxy(proxy);
  }
  if (freeHolder) {
    delete holder;
    object->_GCData = nullptr;
  }
}

}  // namespace Processor
