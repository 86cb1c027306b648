// Common::Error: the one way failure is told across the module boundary.
//
// An error is a single pointer to a shared, variable-size ErrorRecord; an
// empty error means success. Host and module share no code for records: a
// record carries a table of operations (its kind), and everything a host
// does with an error (copy, release, read text and fields, follow the chain
// of causes) is inline here and reaches the module only through that table.
// Raising new records is the work of this project's own libraries (the
// module and libvellumrig_host); those constructors exist only in their
// builds.
#pragma once

#include "vellumrig/version.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace Common {

// Where a record was raised. Hash is a fixed constant of the source file plus
// Line, so two sites of one file differ by the difference of their lines.
struct ErrorSite {
  std::uint64_t Hash;
  const char* File;      // static, never owned
  const char* Function;  // static, never owned
  std::uint32_t Line;
};

struct ErrorRecord;

// The kind of a record: one table shared by all records of that kind.
struct ErrorRecordOps {
  void (*Destroy)(ErrorRecord* record);
  ErrorRecord* (*Clone)(const ErrorRecord* record);  // null when out of memory
  void (*GetText)(const ErrorRecord* record, std::u16string& text);
  std::uint64_t (*GetNumber)(const ErrorRecord* record, const char* name);
  const char* (*GetNarrowString)(const ErrorRecord* record, const char* name);
  const char16_t* (*GetWideString)(const ErrorRecord* record, const char* name);
  const char* (*GetFieldNames)(const ErrorRecord* record);
};

// The head of every record. Kind-specific 64-bit slots follow it, then the
// bytes of copied strings. A string slot holds 0 for none, a value below Size
// for an offset from the record's start, or else an absolute pointer: that
// rule is what lets a record be cloned by a plain byte copy.
struct ErrorRecord {
  std::int32_t RefCount;  // changed only through std::atomic_ref
  std::uint32_t Code;     // never 0 in a record
  ErrorRecord* Reason;    // owns one reference; null at the end of a chain
  const ErrorRecordOps* Ops;
  ErrorSite Site;
  std::uint32_t Size;  // whole block in bytes (the OS code, for the fixed OS kind)
};

// Facility numbers: the high 16 bits of a code.
enum Facility : std::uint32_t {
  FacilityGeneric = 0x0000,
  FacilityStringEnum = 0x0001,
  FacilityFile = 0x0004,
  FacilityVariant = 0x000F,
  FacilityDisk = 0x0010,
  FacilityDelayLoad = 0x0014,
  FacilityXml = 0x003B,
  FacilityEngine = 0x003C,
  FacilityProvider = 0x0053,
};

inline constexpr std::uint32_t kWindowsErrorCode = 0xFFF0;
inline constexpr std::uint32_t kMemoryErrorCode = 0xFFF2;

class Error {
 public:
  Error() noexcept : record_(nullptr) {}
  Error(const Error& other) noexcept : record_(other.record_) { Acquire(record_); }
  Error(Error&& other) noexcept : record_(other.record_) { other.record_ = nullptr; }
  ~Error() { ReleaseChain(record_); }

  Error& operator=(const Error& other) noexcept {
    Acquire(other.record_);
    ReleaseChain(record_);
    record_ = other.record_;
    return *this;
  }
  Error& operator=(Error&& other) noexcept {
    if (this != &other) {
      ReleaseChain(record_);
      record_ = other.record_;
      other.record_ = nullptr;
    }
    return *this;
  }

  bool IsEmpty() const noexcept { return record_ == nullptr; }
  explicit operator bool() const noexcept { return record_ != nullptr; }

  std::uint32_t Code() const noexcept { return record_ ? record_->Code : 0; }
  // Errors are equal when their codes are.
  bool operator==(const Error& other) const noexcept { return Code() == other.Code(); }

  Error Reason() const noexcept {
    Error next;
    if (record_ && record_->Reason) {
      next.record_ = record_->Reason;
      Acquire(next.record_);
    }
    return next;
  }

  // Hangs `cause` behind this error. A shared record is never changed: it is
  // cloned first, and the clone carries only the new cause (the old chain is
  // not carried over). If the clone cannot be made, the cause is lost.
  void AddReason(const Error& cause) noexcept {
    ErrorRecord* c = cause.record_;
    Acquire(c);
    if (!record_) {
      record_ = c;
      return;
    }
    if (std::atomic_ref<std::int32_t>(record_->RefCount).load(std::memory_order_acquire) == 1) {
      ErrorRecord* old = record_->Reason;
      record_->Reason = c;
      ReleaseChain(old);
      return;
    }
    ErrorRecord* copy = record_->Ops->Clone(record_);
    if (!copy) {
      ReleaseChain(c);
      return;
    }
    copy->Reason = c;
    ReleaseChain(record_);
    record_ = copy;
  }

  std::u16string GetText() const {
    std::u16string text;
    if (record_) record_->Ops->GetText(record_, text);
    return text;
  }
  std::uint64_t GetNumber(const char* name) const {
    return record_ ? record_->Ops->GetNumber(record_, name) : 0;
  }
  const char* GetNarrowString(const char* name) const {
    return record_ ? record_->Ops->GetNarrowString(record_, name) : nullptr;
  }
  const char16_t* GetWideString(const char* name) const {
    return record_ ? record_->Ops->GetWideString(record_, name) : nullptr;
  }
  const char* GetFieldNames() const { return record_ ? record_->Ops->GetFieldNames(record_) : nullptr; }
  ErrorSite Site() const noexcept { return record_ ? record_->Site : ErrorSite{0, nullptr, nullptr, 0}; }
  const ErrorRecord* Record() const noexcept { return record_; }

#if defined(VELLUMRIG_BUILD)
  // Raising, inside this project's libraries only. Code 0 gives an empty error whatever
  // else is given. Allocation failure never throws: the static record with
  // code 0xFFF2 stands in.
  Error(const ErrorSite& site, std::uint32_t code) noexcept;
  Error(const ErrorSite& site, std::uint32_t code, const char* text) noexcept;
  Error(const ErrorSite& site, std::uint32_t code, const char16_t* text) noexcept;
  Error(const ErrorSite& site, std::uint32_t code, const std::u16string& text) noexcept
      : Error(site, code, text.c_str()) {}

  // The kinds with named fields, arguments in the order of their field lists.
  static Error WithFileName(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                            const char16_t* fileName) noexcept;
  static Error WithFullPath(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                            const char16_t* fullPath, const char16_t* fileName) noexcept;
  static Error WithEnumValue(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                             const char* errorValue, const char* enumTypeName) noexcept;
  static Error ForModule(const ErrorSite& site, std::uint32_t code, const char* path) noexcept;
  static Error ForFunction(const ErrorSite& site, std::uint32_t code, const char* path,
                           const char* function) noexcept;
  static Error ForFunction(const ErrorSite& site, std::uint32_t code, const char* path,
                           std::uint64_t ordinal) noexcept;
  static Error WithSyntaxPosition(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                                  std::uint64_t line, std::uint64_t column) noexcept;

  // Adds an operating-system error (an errno value here) as the cause.
  Error& AddWindowsError(int windowsCode) noexcept;

  // Takes over one reference that the caller already holds.
  static Error Adopt(ErrorRecord* record) noexcept {
    Error e;
    e.record_ = record;
    return e;
  }
#endif

 private:
  static void Acquire(ErrorRecord* r) noexcept {
    if (r) std::atomic_ref<std::int32_t>(r->RefCount).fetch_add(1, std::memory_order_relaxed);
  }
  // Walks the chain in a loop: a chain of any length needs no deep stack.
  static void ReleaseChain(ErrorRecord* r) noexcept {
    while (r) {
      if (std::atomic_ref<std::int32_t>(r->RefCount).fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
      ErrorRecord* next = r->Reason;
      r->Ops->Destroy(r);
      r = next;
    }
  }

  ErrorRecord* record_;
};

// The empty error, for operations that succeed.
inline const Error NoError{};

}  // namespace Common
