#include "processor/variant.h"

#include <cstring>
#include <new>

#include "common/message_error.h"
#include "common/site.h"
#include "processor/format/date_format.h"
#include "processor/formatters_holder.h"
#include "processor/string_enum.h"
#include "processor/variant_allocator.h"

namespace Processor {

namespace {

constexpr std::uint32_t kConversionFailed = (Common::FacilityVariant << 16) | 0x0001;
constexpr std::uint32_t kGetValueFailed = (Common::FacilityVariant << 16) | 0x0002;

// Written as the enum is, so names and values stay together.
std::int32_t typeRunning = 0;
const StringEnum::Entry kTypeEntries[] = {
    {"TDate", typeRunning},     {"TDouble", typeRunning},    {"TLong", typeRunning},
    {"TULong", typeRunning},    {"TString", typeRunning},    {"TLong64", typeRunning},
    {"TULong64", typeRunning},  {"TInterface", typeRunning}, {"TBinary", typeRunning},
    {"TIdentifier", typeRunning}, {"TBool", typeRunning},    {"TVariant", typeRunning},
    {"TError", typeRunning},    {"TEmpty", typeRunning},
};
const StringEnum kTypeEnum(kTypeEntries, sizeof kTypeEntries / sizeof kTypeEntries[0], "Type");

std::u16string Widen(std::string_view narrow) {
  std::u16string wide;
  wide.reserve(narrow.size());
  for (char c : narrow) wide += static_cast<unsigned char>(c);
  return wide;
}

std::u16string_view View(const icu::UnicodeString& s) {
  return std::u16string_view(s.getBuffer(), static_cast<std::size_t>(s.length()));
}

Common::ErrorSite SiteAt(const char* function, std::uint32_t line) {
  return Common::ErrorSite{Common::detail::FileConstant(__FILE__) + line, __FILE__, function, line};
}

void AppendBase64(String& out, const std::uint8_t* data, std::size_t length) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::size_t i = 0;
  for (; i + 3 <= length; i += 3) {
    const std::uint32_t v = data[i] << 16 | data[i + 1] << 8 | data[i + 2];
    for (int shift = 18; shift >= 0; shift -= 6) out.append(static_cast<char16_t>(kAlphabet[v >> shift & 63]));
  }
  if (i < length) {
    const bool two = i + 1 < length;
    const std::uint32_t v = data[i] << 16 | (two ? data[i + 1] << 8 : 0);
    out.append(static_cast<char16_t>(kAlphabet[v >> 18 & 63]));
    out.append(static_cast<char16_t>(kAlphabet[v >> 12 & 63]));
    out.append(two ? static_cast<char16_t>(kAlphabet[v >> 6 & 63]) : u'=');
    out.append(u'=');
  }
}

}  // namespace

BinaryBlock::BinaryBlock(const void* data, std::size_t length)
    : data_(new std::uint8_t[length ? length : 1]), length_(length) {
  if (length) std::memcpy(data_, data, length);
}

BinaryBlock::~BinaryBlock() { delete[] data_; }

const char* Variant::TypeName(Type type) {
  const std::string* name = kTypeEnum.Find(type);
  return name ? name->c_str() : "";
}

Common::Error& Variant::ErrorRef() const {
  return *std::launder(reinterpret_cast<Common::Error*>(const_cast<unsigned char*>(value_.error)));
}

Variant::Variant(const icu::UnicodeString& text) : type_(TString) {
  value_.string = Allocator::Instance()->GetString(text);
}

Variant::Variant(const char16_t* text) : Variant(icu::UnicodeString(text ? text : u"")) {}

Variant::Variant(std::string_view identifier) : type_(TIdentifier) {
  value_.identifier = Allocator::Instance()->GetNarrow(identifier);
}

Variant::Variant(const Common::Error& error) noexcept : type_(TError) {
  new (value_.error) Common::Error(error);
}

Variant::Variant(void* pointer, MetaClass* meta) noexcept : meta_(meta), type_(TInterface) {
  value_.pointer = meta ? pointer : nullptr;
  if (value_.pointer) meta_->AddRef(value_.pointer);
}

Variant::Variant(AutoRef<BinaryBlock> block) noexcept : type_(TBinary) {
  value_.binary = block.Detach();
  if (!value_.binary) {
    type_ = TEmpty;
    value_.u64 = 0;
  }
}

Variant Variant::Date(double milliseconds) noexcept {
  Variant v(milliseconds);
  v.type_ = TDate;
  return v;
}

Variant Variant::Binary(const void* data, std::size_t length) {
  return Variant(AutoRef<BinaryBlock>::Adopt(new BinaryBlock(data, length)));
}

Variant::Variant(const Variant& other) : meta_(other.meta_), type_(other.type_) {
  switch (type_) {
    case TString: value_.string = Allocator::Instance()->GetString(*other.value_.string); break;
    case TIdentifier: value_.identifier = Allocator::Instance()->GetNarrow(*other.value_.identifier); break;
    case TInterface:
      value_.pointer = other.value_.pointer;
      if (value_.pointer) meta_->AddRef(value_.pointer);
      break;
    case TBinary:
      value_.binary = other.value_.binary;
      Processor::AddRef(value_.binary);
      break;
    case TError: new (value_.error) Common::Error(other.ErrorRef()); break;
    default: value_ = other.value_; break;
  }
}

Variant::Variant(Variant&& other) noexcept : type_(TEmpty) { TakeFrom(other); }

Variant& Variant::operator=(Variant other) noexcept {
  Clear();
  TakeFrom(other);
  return *this;
}

void Variant::TakeFrom(Variant& other) noexcept {
  meta_ = other.meta_;
  type_ = other.type_;
  if (type_ == TError) {
    new (value_.error) Common::Error(std::move(other.ErrorRef()));
    other.ErrorRef().~Error();
  } else {
    value_ = other.value_;
  }
  // The content now belongs here: `other` is emptied without releasing it.
  other.type_ = TEmpty;
  other.meta_ = nullptr;
  other.value_.u64 = 0;
}

Variant::~Variant() { Clear(); }

void Variant::Clear() noexcept {
  switch (type_) {
    case TString: Allocator::Instance()->ReturnString(value_.string); break;
    case TIdentifier: Allocator::Instance()->ReturnNarrow(value_.identifier); break;
    case TInterface:
      if (value_.pointer) meta_->Release(value_.pointer);
      break;
    case TBinary: Processor::Release(value_.binary); break;
    case TError: ErrorRef().~Error(); break;
    default: break;
  }
  type_ = TEmpty;
  meta_ = nullptr;
  value_.u64 = 0;
}

String Variant::ShownValue() const {
  // What the message format's plain argument would show, without throwing:
  // a failure must be able to show any value.
  try {
    String text;
    switch (type_) {
      case TError: return String(ErrorRef().GetText());
      case TInterface: return String(u"<unknown interface>");
      case TBinary: return String(u"<binary data>");
      case TEmpty: return String(u"<void>");
      case TVariant: return String(u"<unknown>");
      default: ToString(text); return text;
    }
  } catch (...) {
    return String();
  }
}

void Variant::ThrowConversion(Type target) const {
  String shown = ShownValue();
  std::u16string message = Common::FillPlaceholders(
      Common::MessageText(Common::Msg::VariantConvertFailed),
      {Widen(TypeName(type_)), View(shown), Widen(TypeName(target))});
  throw Error(Common::Error(SiteAt("FormatConversionError", 39), kConversionFailed, message));
}

void Variant::CheckType(Type wanted) const {
  if (type_ == wanted) return;
  String shown = ShownValue();
  std::u16string message = Common::FillPlaceholders(
      Common::MessageText(Common::Msg::VariantGetFailed),
      {Widen(TypeName(wanted)), Widen(TypeName(type_)), View(shown)});
  throw Error(Common::Error(SiteAt("FormatGetValueError", 46), kGetValueFailed, message));
}

bool Variant::GetBool() const { CheckType(TBool); return value_.b; }
double Variant::GetDouble() const { CheckType(TDouble); return value_.d; }
double Variant::GetDate() const { CheckType(TDate); return value_.d; }
std::int32_t Variant::GetLong() const { CheckType(TLong); return value_.i32; }
std::uint32_t Variant::GetULong() const { CheckType(TULong); return value_.u32; }
std::int64_t Variant::GetLong64() const { CheckType(TLong64); return value_.i64; }
std::uint64_t Variant::GetULong64() const { CheckType(TULong64); return value_.u64; }
const String& Variant::GetString() const { CheckType(TString); return *value_.string; }
const std::string& Variant::GetIdentifier() const { CheckType(TIdentifier); return *value_.identifier; }
const BinaryBlock& Variant::GetBinary() const { CheckType(TBinary); return *value_.binary; }
Common::Error Variant::GetError() const { CheckType(TError); return ErrorRef(); }

bool Variant::ValueOfInterface(Variant& out, Type wanted) const {
  if (!value_.pointer) return false;
  InterfaceRef ref;
  meta_->Cast(ref, VariantValue::InterfaceId, value_.pointer);
  if (!ref.Pointer) return false;
  auto source = AutoRef<VariantValue>::Adopt(static_cast<VariantValue*>(ref.Pointer));
  source->GetValue(out, wanted);
  return out.type_ == wanted;
}

double Variant::ToDouble() const {
  switch (type_) {
    case TDate:
    case TDouble: return value_.d;
    case TLong: return value_.i32;
    case TLong64: return static_cast<double>(value_.i64);
    case TULong: return value_.u32;
    // Unsigned all the way: the top bit counts 2^63, not a sign.
    case TULong64: return static_cast<double>(value_.u64);
    case TBool: return value_.b ? 1.0 : 0.0;
    case TString:
    case TIdentifier: {
      String text = type_ == TString ? *value_.string : String(Widen(*value_.identifier));
      text.trim();
      if (text.isEmpty() || text.charAt(0) < u'0' || text.charAt(0) > u'9')
        ThrowConversion(TDouble);
      AutoRef<FormattersHolder> formatters = FormattersHolder::Instance();
      const bool hex = text.startsWith(u"0x");
      std::int32_t position = 0;
      double result = (hex ? formatters->Hex() : formatters->Decimal()).Parse(text, position);
      if (position != text.length()) {
        // A size with its unit ("10 KB"), or a number in the local form.
        if (const SizeFormat* size = formatters->Size())
          result = size->Parse(text, position);
        else
          result = formatters->Local().Parse(text, position);
      }
      if (position != text.length()) ThrowConversion(TDouble);
      return result;
    }
    case TInterface: {
      Variant value;
      if (!ValueOfInterface(value, TDouble)) ThrowConversion(TDouble);
      return value.value_.d;
    }
    default: ThrowConversion(TDouble);
  }
}

void Variant::ToString(String& out) const {
  out.remove();
  switch (type_) {
    case TDate:
      if (value_.d != 0.0) DateFormat::CreateDateTime(0)->Format(out, value_.d);
      return;
    case TDouble:
    case TLong:
    case TULong: FormattersHolder::Instance()->Local().Format(out, *this, 0); return;
    case TLong64:
    case TULong64: FormattersHolder::Instance()->Decimal().Format(out, *this, 0); return;
    case TString: out = *value_.string; return;
    case TIdentifier: out = String(Widen(*value_.identifier)); return;
    case TBinary: AppendBase64(out, value_.binary->Data(), value_.binary->Length()); return;
    case TBool: out = value_.b ? u"true" : u"false"; return;
    case TInterface: {
      Variant value;
      if (!ValueOfInterface(value, TString)) ThrowConversion(TString);
      out = *value.value_.string;
      return;
    }
    case TEmpty: return;
    default: ThrowConversion(TString);
  }
}

}  // namespace Processor
