// The kinds of error record and the one routine that raises a record.
// Module-internal: the public side of errors is vellumrig/error.h.
//
// A record is one heap block: the ErrorRecord head, then one 64-bit slot per
// value of its kind (the text first where the kind has one, then the named
// fields in the order of the kind's field list), then the bytes of the
// strings that had to be copied.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "vellumrig/error.h"

namespace Common {

// The build tag that every kind answers for the narrow field "$module".
inline constexpr char kModuleTag[] = "vellumrig_vsa64_35791";

enum class FieldType : std::uint8_t { Narrow, Wide, Number };
enum class TextType : std::uint8_t { None, Narrow, Wide, System };

struct FieldDesc {
  const char* Name;
  FieldType Type;
};

struct KindDesc {
  TextType Text;
  const FieldDesc* Fields;
  std::uint32_t FieldCount;
  const char* FieldNames;  // what GetFieldNames answers
};

// The operations table comes first, so a record's Ops pointer leads back to
// the description of its kind.
struct KindOps {
  ErrorRecordOps Ops;
  const KindDesc* Desc;
};

extern const KindOps kCodeOnlyKind;
extern const KindOps kNarrowTextKind;
extern const KindOps kWideTextKind;
extern const KindOps kWindowsErrorKind;
extern const KindOps kFileNameKind;
extern const KindOps kFullPathKind;
extern const KindOps kEnumValueKind;
extern const KindOps kModuleKind;
extern const KindOps kFunctionByNameKind;
extern const KindOps kFunctionByOrdinalKind;
extern const KindOps kSyntaxPositionKind;

// One value to store in a slot: a string (narrow or wide, may be null) or a
// number.
struct SlotValue {
  FieldType Type;
  const void* String;
  std::uint64_t Number;

  static SlotValue Narrow(const char* s) { return {FieldType::Narrow, s, 0}; }
  static SlotValue Wide(const char16_t* s) { return {FieldType::Wide, s, 0}; }
  static SlotValue Of(std::uint64_t n) { return {FieldType::Number, nullptr, n}; }
};

// Raises a record of `kind` with `count` slot values. Strings that lie in
// the active message table are kept by pointer, all others are copied into
// the block. Code 0 gives the empty error; a failed allocation gives the
// static record with code 0xFFF2.
Error RaiseRecord(const ErrorSite& site, std::uint32_t code, const KindOps& kind,
                  const SlotValue* values, std::size_t count) noexcept;

// The static record that stands in when memory runs out. Never destroyed.
ErrorRecord& MemoryErrorRecord() noexcept;

// Resolves a string slot: 0 is none, a value below Size an offset from the
// record's start, any other value an absolute pointer.
const void* ResolveString(const ErrorRecord* record, std::uint64_t ref) noexcept;
const std::uint64_t* RecordSlots(const ErrorRecord* record) noexcept;

// The operating system's text for a value made by AddWindowsError, trimmed.
std::u16string SystemErrorText(std::uint32_t value);
// Removes carriage returns, one final line feed, and a final full stop of a
// text of one line.
std::u16string TrimSystemText(std::u16string text);

// Test seam: the next `count` record allocations fail.
void FailRecordAllocations(int count) noexcept;

}  // namespace Common
