// Processor::Variant: the self-describing value of the framework. Every
// argument of a message is one, and error texts show field values through
// one. Module-internal.
//
// A variant owns what it holds. Strings come from a small recycling pool
// (Variant::Allocator), because formatting one message makes and drops many
// of them. Exact getters never convert; ToDouble and ToString do, through the
// shared formatters, and throw Variant::Error when they cannot.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "processor/meta_class.h"
#include "vellumrig/error.h"
#include "vellumrig/ref.h"
#include "vellumrig/string.h"

namespace Processor {

// The bytes of a TBinary variant: shared between copies, freed with the last.
class BinaryBlock : public RefObject {
 public:
  BinaryBlock(const void* data, std::size_t length);
  ~BinaryBlock() override;

  const std::uint8_t* Data() const { return data_; }
  std::size_t Length() const { return length_; }

 private:
  std::uint8_t* data_;
  std::size_t length_;
};

class Variant {
 public:
  enum Type : std::int32_t {
    TDate = 0,  // milliseconds since 1970-01-01 UTC as a double; 0 is no date
    TDouble = 1,
    TLong = 2,
    TULong = 3,
    TString = 4,
    TLong64 = 5,
    TULong64 = 6,
    TInterface = 7,
    TBinary = 8,
    TIdentifier = 9,
    TBool = 10,
    TVariant = 11,  // a name only: no variant of this type is made
    TError = 12,
    TEmpty = 13,
  };

  // Both failures of a variant: 0xF0001 (a conversion cannot be done) and
  // 0xF0002 (an exact getter met another type).
  class Error : public Common::Error {
   public:
    explicit Error(Common::Error error) : Common::Error(std::move(error)) {}
  };

  class Allocator;

  Variant() noexcept : type_(TEmpty) { value_.u64 = 0; }
  Variant(bool value) noexcept : type_(TBool) { value_.u64 = 0; value_.b = value; }
  Variant(double value) noexcept : type_(TDouble) { value_.d = value; }
  Variant(int value) noexcept : type_(TLong) { value_.u64 = 0; value_.i32 = value; }
  Variant(unsigned value) noexcept : type_(TULong) { value_.u64 = 0; value_.u32 = value; }
  Variant(long value) noexcept : type_(TLong64) { value_.i64 = value; }
  Variant(unsigned long value) noexcept : type_(TULong64) { value_.u64 = value; }
  Variant(long long value) noexcept : type_(TLong64) { value_.i64 = value; }
  Variant(unsigned long long value) noexcept : type_(TULong64) { value_.u64 = value; }
  Variant(const icu::UnicodeString& text);
  Variant(const char16_t* text);
  // A narrow text is an identifier (TIdentifier): type names, field names.
  Variant(std::string_view identifier);
  Variant(const char* identifier) : Variant(std::string_view(identifier ? identifier : "")) {}
  Variant(const Common::Error& error) noexcept;
  // An interface pointer with the meta-class of its interface; counted
  // through the meta-class. A null pointer is allowed.
  Variant(void* pointer, MetaClass* meta) noexcept;
  template <class I>
  explicit Variant(const AutoRef<I>& ref)
      : Variant(ref.Get(), InterfaceMetaClass<I>::Instance()) {}
  Variant(AutoRef<BinaryBlock> block) noexcept;

  static Variant Date(double milliseconds) noexcept;
  static Variant Binary(const void* data, std::size_t length);

  Variant(const Variant& other);
  Variant(Variant&& other) noexcept;
  Variant& operator=(Variant other) noexcept;
  ~Variant();

  Type GetType() const { return type_; }
  // Throws the "get value" failure when the type is not `wanted`.
  void CheckType(Type wanted) const;

  // Exact getters: the type must match, nothing is converted.
  bool GetBool() const;
  double GetDouble() const;
  double GetDate() const;
  std::int32_t GetLong() const;
  std::uint32_t GetULong() const;
  std::int64_t GetLong64() const;
  std::uint64_t GetULong64() const;
  const String& GetString() const;
  const std::string& GetIdentifier() const;
  const BinaryBlock& GetBinary() const;
  Common::Error GetError() const;
  // TInterface, cast to I; a TEmpty or a null pointer gives an empty holder.
  template <class I>
  AutoRef<I> GetInterface() const {
    if (type_ == TEmpty) return AutoRef<I>();
    CheckType(TInterface);
    InterfaceRef ref;
    if (value_.pointer) meta_->Cast(ref, I::InterfaceId, value_.pointer);
    return AutoRef<I>::Adopt(static_cast<I*>(ref.Pointer));
  }
  void* InterfacePointer() const { return type_ == TInterface ? value_.pointer : nullptr; }
  MetaClass* InterfaceMeta() const { return type_ == TInterface ? meta_ : nullptr; }

  // Conversions; both throw Variant::Error when the value has no such form.
  double ToDouble() const;
  void ToString(String& out) const;

  // The name of a type ("TDate" ... "TEmpty"), as failures show it.
  static const char* TypeName(Type type);

 private:
  // What a failure shows of the value: never throws.
  String ShownValue() const;
  [[noreturn]] void ThrowConversion(Type target) const;
  bool ValueOfInterface(Variant& out, Type wanted) const;
  void Clear() noexcept;
  // Moves the content of `other` into this empty variant; `other` ends empty.
  void TakeFrom(Variant& other) noexcept;

  union Value {
    double d;
    std::int32_t i32;
    std::uint32_t u32;
    std::int64_t i64;
    std::uint64_t u64;
    bool b;
    String* string;
    std::string* identifier;
    void* pointer;
    BinaryBlock* binary;
    // A Common::Error lives here, made and destroyed in place.
    alignas(Common::Error) unsigned char error[sizeof(Common::Error)];
  };
  static_assert(sizeof(Common::Error) == 8);
  Common::Error& ErrorRef() const;

  Value value_;
  MetaClass* meta_ = nullptr;  // TInterface only
  Type type_;
};

// The interface through which an object outside this system gives a variant
// its value. Nothing here implements it, so a TInterface variant fails its
// conversions unless a host's object does.
class VariantValue : public virtual Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x28C08C89;
  virtual void GetValue(Variant& out, Variant::Type wanted) = 0;
};

}  // namespace Processor
