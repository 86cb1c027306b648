#include "common/error_record.h"

#include <atomic>
#include <cstring>
#include <limits>
#include <new>

#include "common/message_table.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

std::atomic<int> g_failAllocations{0};

const KindDesc& DescOf(const ErrorRecord* record) {
  return *reinterpret_cast<const KindOps*>(record->Ops)->Desc;
}

bool HasTextSlot(const KindDesc& desc) {
  return desc.Text == TextType::Narrow || desc.Text == TextType::Wide;
}

// The slot of a named field of the given type, or null.
const std::uint64_t* FindField(const ErrorRecord* record, const char* name, FieldType type) {
  if (!name) return nullptr;
  const KindDesc& desc = DescOf(record);
  const std::uint64_t* slots = RecordSlots(record) + (HasTextSlot(desc) ? 1 : 0);
  for (std::uint32_t i = 0; i < desc.FieldCount; ++i) {
    if (desc.Fields[i].Type == type && std::strcmp(desc.Fields[i].Name, name) == 0) return slots + i;
  }
  return nullptr;
}

std::size_t RecordSize(const ErrorRecord* record) {
  // The fixed operating-system kind keeps its code where Size stands.
  return DescOf(record).Text == TextType::System ? sizeof(ErrorRecord) : record->Size;
}

void Destroy(ErrorRecord* record) { delete[] reinterpret_cast<std::uint8_t*>(record); }

std::uint8_t* Allocate(std::size_t size) noexcept {
  if (g_failAllocations.load(std::memory_order_relaxed) > 0 &&
      g_failAllocations.fetch_sub(1, std::memory_order_relaxed) > 0)
    return nullptr;
  return new (std::nothrow) std::uint8_t[size];
}

ErrorRecord* Clone(const ErrorRecord* record) {
  const std::size_t size = RecordSize(record);
  std::uint8_t* block = Allocate(size);
  if (!block) return nullptr;
  std::memcpy(block, record, size);
  auto* copy = reinterpret_cast<ErrorRecord*>(block);
  copy->RefCount = 1;
  copy->Reason = nullptr;
  return copy;
}

void GetText(const ErrorRecord* record, std::u16string& text) {
  text.clear();
  const KindDesc& desc = DescOf(record);
  if (desc.Text == TextType::System) {
    text = SystemErrorText(record->Size);
    return;
  }
  if (!HasTextSlot(desc)) return;
  const void* s = ResolveString(record, RecordSlots(record)[0]);
  if (!s) return;
  if (desc.Text == TextType::Wide) {
    text = static_cast<const char16_t*>(s);
  } else {
    // Narrow texts are widened unit by unit.
    for (const char* p = static_cast<const char*>(s); *p; ++p)
      text += static_cast<char16_t>(static_cast<unsigned char>(*p));
  }
}

std::uint64_t GetNumber(const ErrorRecord* record, const char* name) {
  if (DescOf(record).Text == TextType::System)
    return name && std::strcmp(name, "code") == 0 ? record->Size : 0;
  const std::uint64_t* slot = FindField(record, name, FieldType::Number);
  return slot ? *slot : 0;
}

const char* GetNarrowString(const ErrorRecord* record, const char* name) {
  if (name && std::strcmp(name, "$module") == 0) return kModuleTag;
  const std::uint64_t* slot = FindField(record, name, FieldType::Narrow);
  return slot ? static_cast<const char*>(ResolveString(record, *slot)) : nullptr;
}

const char16_t* GetWideString(const ErrorRecord* record, const char* name) {
  const std::uint64_t* slot = FindField(record, name, FieldType::Wide);
  return slot ? static_cast<const char16_t*>(ResolveString(record, *slot)) : nullptr;
}

const char* GetFieldNames(const ErrorRecord* record) { return DescOf(record).FieldNames; }

constexpr ErrorRecordOps kOps{Destroy, Clone, GetText, GetNumber, GetNarrowString, GetWideString,
                              GetFieldNames};

constexpr FieldDesc kFileNameFields[] = {{"fileName", FieldType::Wide}};
constexpr FieldDesc kFullPathFields[] = {{"FullPath", FieldType::Wide},
                                         {"FileName", FieldType::Wide}};
constexpr FieldDesc kEnumValueFields[] = {{"ErrorValue", FieldType::Narrow},
                                          {"EnumTypeName", FieldType::Narrow}};
constexpr FieldDesc kModuleFields[] = {{"path", FieldType::Narrow}};
constexpr FieldDesc kFunctionByNameFields[] = {{"path", FieldType::Narrow},
                                               {"function", FieldType::Narrow}};
constexpr FieldDesc kFunctionByOrdinalFields[] = {{"path", FieldType::Narrow},
                                                  {"function", FieldType::Number}};
constexpr FieldDesc kSyntaxPositionFields[] = {{"line", FieldType::Number},
                                               {"column", FieldType::Number}};

constexpr KindDesc kCodeOnlyDesc{TextType::None, nullptr, 0, "$module"};
constexpr KindDesc kNarrowTextDesc{TextType::Narrow, nullptr, 0, "$module"};
constexpr KindDesc kWideTextDesc{TextType::Wide, nullptr, 0, "$module"};
constexpr KindDesc kWindowsErrorDesc{TextType::System, nullptr, 0, "code,$module"};
constexpr KindDesc kFileNameDesc{TextType::Wide, kFileNameFields, 1, "fileName,$module"};
constexpr KindDesc kFullPathDesc{TextType::Wide, kFullPathFields, 2, "FullPath,FileName,$module"};
constexpr KindDesc kEnumValueDesc{TextType::Wide, kEnumValueFields, 2,
                                  "ErrorValue,EnumTypeName,$module"};
constexpr KindDesc kModuleDesc{TextType::None, kModuleFields, 1, "path,$module"};
constexpr KindDesc kFunctionByNameDesc{TextType::None, kFunctionByNameFields, 2,
                                       "path,function,$module"};
constexpr KindDesc kFunctionByOrdinalDesc{TextType::None, kFunctionByOrdinalFields, 2,
                                          "path,function,$module"};
constexpr KindDesc kSyntaxPositionDesc{TextType::Wide, kSyntaxPositionFields, 2,
                                       "line,column,$module"};

ErrorRecord g_memoryRecord{1, kMemoryErrorCode, nullptr, &kCodeOnlyKind.Ops, {0, nullptr, nullptr, 0},
                           sizeof(ErrorRecord)};

std::size_t StringBytes(const SlotValue& v) {
  if (v.Type == FieldType::Narrow) return std::strlen(static_cast<const char*>(v.String)) + 1;
  return (std::char_traits<char16_t>::length(static_cast<const char16_t*>(v.String)) + 1) * 2;
}

}  // namespace

const KindOps kCodeOnlyKind{kOps, &kCodeOnlyDesc};
const KindOps kNarrowTextKind{kOps, &kNarrowTextDesc};
const KindOps kWideTextKind{kOps, &kWideTextDesc};
const KindOps kWindowsErrorKind{kOps, &kWindowsErrorDesc};
const KindOps kFileNameKind{kOps, &kFileNameDesc};
const KindOps kFullPathKind{kOps, &kFullPathDesc};
const KindOps kEnumValueKind{kOps, &kEnumValueDesc};
const KindOps kModuleKind{kOps, &kModuleDesc};
const KindOps kFunctionByNameKind{kOps, &kFunctionByNameDesc};
const KindOps kFunctionByOrdinalKind{kOps, &kFunctionByOrdinalDesc};
const KindOps kSyntaxPositionKind{kOps, &kSyntaxPositionDesc};

ErrorRecord& MemoryErrorRecord() noexcept { return g_memoryRecord; }

void FailRecordAllocations(int count) noexcept { g_failAllocations.store(count); }

const std::uint64_t* RecordSlots(const ErrorRecord* record) noexcept {
  return reinterpret_cast<const std::uint64_t*>(reinterpret_cast<const std::uint8_t*>(record) +
                                                sizeof(ErrorRecord));
}

const void* ResolveString(const ErrorRecord* record, std::uint64_t ref) noexcept {
  if (ref == 0) return nullptr;
  if (ref < record->Size) return reinterpret_cast<const std::uint8_t*>(record) + ref;
  return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(ref));
}

Error RaiseRecord(const ErrorSite& site, std::uint32_t code, const KindOps& kind,
                  const SlotValue* values, std::size_t count) noexcept {
  if (code == 0) return Error();
  const MessageTableView table = ActiveMessageTable();
  auto inTable = [&table](const void* p) {
    const auto* b = static_cast<const std::uint8_t*>(p);
    return table.Base && b >= table.Base && static_cast<std::size_t>(b - table.Base) < table.Size;
  };
  const std::size_t head = sizeof(ErrorRecord) + 8 * count;
  // Lays the copied strings out behind the slots; wide strings keep their
  // 2-byte alignment.
  auto layout = [&](bool pointersAllowed) {
    std::size_t size = head;
    for (std::size_t i = 0; i < count; ++i) {
      const SlotValue& v = values[i];
      if (v.Type == FieldType::Number || !v.String || (pointersAllowed && inTable(v.String)))
        continue;
      if (v.Type == FieldType::Wide) size = (size + 1) & ~std::size_t{1};
      size += StringBytes(v);
    }
    return size;
  };
  bool pointersAllowed = table.Base != nullptr;
  std::size_t total = layout(pointersAllowed);
  // A table lying below the block's size could make a pointer read as an
  // offset: then nothing is kept by pointer.
  if (pointersAllowed && reinterpret_cast<std::uintptr_t>(table.Base) < total) {
    pointersAllowed = false;
    total = layout(false);
  }
  std::uint8_t* block =
      total <= std::numeric_limits<std::uint32_t>::max() ? Allocate(total) : nullptr;
  if (!block) {
    std::atomic_ref<std::int32_t>(g_memoryRecord.RefCount).fetch_add(1, std::memory_order_relaxed);
    return Error::Adopt(&g_memoryRecord);
  }
  auto* record = new (block) ErrorRecord{0, code, nullptr, &kind.Ops, site,
                                         static_cast<std::uint32_t>(total)};
  auto* slots = reinterpret_cast<std::uint64_t*>(block + sizeof(ErrorRecord));
  std::size_t at = head;
  for (std::size_t i = 0; i < count; ++i) {
    const SlotValue& v = values[i];
    if (v.Type == FieldType::Number) {
      slots[i] = v.Number;
    } else if (!v.String) {
      slots[i] = 0;
    } else if (pointersAllowed && inTable(v.String)) {
      slots[i] = reinterpret_cast<std::uintptr_t>(v.String);
    } else {
      if (v.Type == FieldType::Wide) at = (at + 1) & ~std::size_t{1};
      const std::size_t bytes = StringBytes(v);
      std::memcpy(block + at, v.String, bytes);
      slots[i] = at;
      at += bytes;
    }
  }
  std::atomic_ref<std::int32_t>(record->RefCount).fetch_add(1, std::memory_order_release);
  return Error::Adopt(record);
}

std::u16string TrimSystemText(std::u16string text) {
  std::erase(text, u'\r');
  if (!text.empty() && text.back() == u'\n') text.pop_back();
  if (!text.empty() && text.back() == u'.' && text.find(u'\n') == std::u16string::npos)
    text.pop_back();
  return text;
}

std::u16string SystemErrorText(std::uint32_t value) {
  // Values made from an errno carry it in their low 16 bits; others (below 1)
  // were kept as they stood.
  int err = static_cast<int>(value);
  if (value & 0x10000000u) err = static_cast<int>((value & ~0x10000000u) & 0xFFFF);
  else if ((value & 0xFFFF0000u) == 0x80070000u) err = static_cast<int>(value & 0xFFFF);
  char buffer[256];
  const char* text = strerror_r(err, buffer, sizeof buffer);
  return TrimSystemText(FromUtf8(text ? text : ""));
}

}  // namespace Common
