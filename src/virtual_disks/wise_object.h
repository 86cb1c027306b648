// The shared object of the disk facade: a pointer with its own use and weak
// counters, for disks handed across interfaces whose holders come and go on
// their own, and Optional, a value that may be missing. Module-internal;
// WiseDisk holds its disk through one.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Fdisk {
namespace Detail {

// Both counts start at 1: the use count for the first holder, the weak
// count for all users together, released when the last of them goes.
class SpCountedBase {
 public:
  SpCountedBase() = default;
  SpCountedBase(const SpCountedBase&) = delete;
  SpCountedBase& operator=(const SpCountedBase&) = delete;
  virtual ~SpCountedBase() = default;
  // Deletes the object; the counters stay while weak holders remain.
  virtual void Dispose() = 0;
  virtual void Destroy() { delete this; }
  virtual void* GetDeleter() { return nullptr; }

  void AddRef() { use_.fetch_add(1, std::memory_order_relaxed); }
  // Raises the use count unless it has reached 0; whether it did.
  bool AddRefLock() {
    std::uint32_t count = use_.load(std::memory_order_relaxed);
    while (count != 0)
      if (use_.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) return true;
    return false;
  }
  void Release() {
    if (use_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      Dispose();
      WeakRelease();
    }
  }
  void WeakAddRef() { weak_.fetch_add(1, std::memory_order_relaxed); }
  void WeakRelease() {
    if (weak_.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
  }
  std::uint32_t UseCount() const { return use_.load(std::memory_order_acquire); }

 private:
  std::atomic<std::uint32_t> use_{1};
  std::atomic<std::uint32_t> weak_{1};
};

template <class T>
class SpCountedImplP final : public SpCountedBase {
 public:
  explicit SpCountedImplP(T* p) : p_(p) {}
  void Dispose() override { delete p_; }

 private:
  T* p_;
};

class WeakCount;

// The strong holder of a counter block.
class SharedCount {
 public:
  SharedCount() = default;
  template <class T>
  explicit SharedCount(T* p) : pi_(new SpCountedImplP<T>(p)) {}
  // Throws "A weak reference has expired." when the object is gone.
  explicit SharedCount(const WeakCount& weak);
  SharedCount(const SharedCount& other) : pi_(other.pi_) {
    if (pi_) pi_->AddRef();
  }
  SharedCount& operator=(SharedCount other) {
    std::swap(pi_, other.pi_);
    return *this;
  }
  ~SharedCount() {
    if (pi_) pi_->Release();
  }
  std::uint32_t UseCount() const { return pi_ ? pi_->UseCount() : 0; }

 private:
  friend class WeakCount;
  SpCountedBase* pi_ = nullptr;
};

class WeakCount {
 public:
  WeakCount() = default;
  explicit WeakCount(const SharedCount& shared) : pi_(shared.pi_) {
    if (pi_) pi_->WeakAddRef();
  }
  WeakCount(const WeakCount& other) : pi_(other.pi_) {
    if (pi_) pi_->WeakAddRef();
  }
  WeakCount& operator=(WeakCount other) {
    std::swap(pi_, other.pi_);
    return *this;
  }
  ~WeakCount() {
    if (pi_) pi_->WeakRelease();
  }

 private:
  friend class SharedCount;
  SpCountedBase* pi_ = nullptr;
};

inline SharedCount::SharedCount(const WeakCount& weak) : pi_(weak.pi_) {
  if (!pi_ || !pi_->AddRefLock()) {
    pi_ = nullptr;
    throw Common::MessageError(VR_SITE, {Vhdx::kInternalError.Code, Common::Msg::WeakReferenceExpired});
  }
}

}  // namespace Detail

template <class T>
class WeakObject;

// A counted pointer; copies share the object, which goes with the last.
template <class T>
class WiseObject {
 public:
  WiseObject() = default;
  explicit WiseObject(T* p) : ptr_(p), count_(p) {}
  // Throws "A weak reference has expired." when the object is gone.
  explicit WiseObject(const WeakObject<T>& weak) : ptr_(weak.ptr_), count_(weak.count_) {}

  T* Get() const { return ptr_; }
  T* operator->() const { return ptr_; }
  explicit operator bool() const { return ptr_ != nullptr; }
  std::uint32_t UseCount() const { return count_.UseCount(); }
  void Reset() { *this = WiseObject(); }

 private:
  friend class WeakObject<T>;
  T* ptr_ = nullptr;
  Detail::SharedCount count_;
};

template <class T>
class WeakObject {
 public:
  explicit WeakObject(const WiseObject<T>& strong) : ptr_(strong.ptr_), count_(strong.count_) {}

 private:
  friend class WiseObject<T>;
  T* ptr_;
  Detail::WeakCount count_;
};

// A value or none; reaching through an empty one is an engine fault.
template <class T>
class Optional {
 public:
  Optional() = default;
  Optional(T value) : value_(std::move(value)) {}
  bool HasValue() const { return value_.has_value(); }
  T* operator->() {
    if (!value_) throw Common::MessageError(VR_SITE, Vhdx::kInternalError);
    return &*value_;
  }

 private:
  std::optional<T> value_;
};

}  // namespace Fdisk
