// Raising Common::Error records: the constructors of each kind and
// AddWindowsError.
#include "common/error_record.h"
#include "common/site.h"

namespace Common {

Error::Error(const ErrorSite& site, std::uint32_t code) noexcept : record_(nullptr) {
  *this = RaiseRecord(site, code, kCodeOnlyKind, nullptr, 0);
}

Error::Error(const ErrorSite& site, std::uint32_t code, const char* text) noexcept
    : record_(nullptr) {
  const SlotValue v[] = {SlotValue::Narrow(text)};
  *this = RaiseRecord(site, code, kNarrowTextKind, v, 1);
}

Error::Error(const ErrorSite& site, std::uint32_t code, const char16_t* text) noexcept
    : record_(nullptr) {
  const SlotValue v[] = {SlotValue::Wide(text)};
  *this = RaiseRecord(site, code, kWideTextKind, v, 1);
}

Error Error::WithFileName(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                          const char16_t* fileName) noexcept {
  const SlotValue v[] = {SlotValue::Wide(text), SlotValue::Wide(fileName)};
  return RaiseRecord(site, code, kFileNameKind, v, 2);
}

Error Error::WithFullPath(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                          const char16_t* fullPath, const char16_t* fileName) noexcept {
  const SlotValue v[] = {SlotValue::Wide(text), SlotValue::Wide(fullPath),
                         SlotValue::Wide(fileName)};
  return RaiseRecord(site, code, kFullPathKind, v, 3);
}

Error Error::WithEnumValue(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                           const char* errorValue, const char* enumTypeName) noexcept {
  const SlotValue v[] = {SlotValue::Wide(text), SlotValue::Narrow(errorValue),
                         SlotValue::Narrow(enumTypeName)};
  return RaiseRecord(site, code, kEnumValueKind, v, 3);
}

Error Error::ForModule(const ErrorSite& site, std::uint32_t code, const char* path) noexcept {
  const SlotValue v[] = {SlotValue::Narrow(path)};
  return RaiseRecord(site, code, kModuleKind, v, 1);
}

Error Error::ForFunction(const ErrorSite& site, std::uint32_t code, const char* path,
                         const char* function) noexcept {
  const SlotValue v[] = {SlotValue::Narrow(path), SlotValue::Narrow(function)};
  return RaiseRecord(site, code, kFunctionByNameKind, v, 2);
}

Error Error::ForFunction(const ErrorSite& site, std::uint32_t code, const char* path,
                         std::uint64_t ordinal) noexcept {
  const SlotValue v[] = {SlotValue::Narrow(path), SlotValue::Of(ordinal)};
  return RaiseRecord(site, code, kFunctionByOrdinalKind, v, 2);
}

Error Error::WithSyntaxPosition(const ErrorSite& site, std::uint32_t code, const char16_t* text,
                                std::uint64_t line, std::uint64_t column) noexcept {
  const SlotValue v[] = {SlotValue::Wide(text), SlotValue::Of(line), SlotValue::Of(column)};
  return RaiseRecord(site, code, kSyntaxPositionKind, v, 3);
}

Error& Error::AddWindowsError(int windowsCode) noexcept {
  const std::uint32_t value =
      windowsCode < 1 ? static_cast<std::uint32_t>(windowsCode)
                      : ((static_cast<std::uint32_t>(windowsCode) & 0xFFFF) | 0x80070000u);
  // The site is the helper's own, whoever the caller is.
  static constexpr char kFile[] = "core\\common\\error";
  static constexpr ErrorSite kSite{detail::FileConstant(kFile) + 314, kFile,
                                   "Common::Error::AddWindowsError", 314};
  Error os = RaiseRecord(kSite, kWindowsErrorCode, kWindowsErrorKind, nullptr, 0);
  // The fixed kind keeps its value where Size stands. The record is not yet
  // shared, so it may still be written.
  if (os.Code() == kWindowsErrorCode && os.record_ != &MemoryErrorRecord()) os.record_->Size = value;
  AddReason(os);
  return *this;
}

}  // namespace Common
