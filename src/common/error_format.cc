#include "common/error_format.h"

#include <atomic>
#include <cstdio>
#include <string_view>

#include "common/error_record.h"
#include "common/file_errors.h"
#include "common/message_table.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

std::atomic<DecimalFormatter> decimal{nullptr};

std::u16string Hex(std::uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "%llX", static_cast<unsigned long long>(value));
  return FromUtf8(text);
}

std::u16string Decimal(std::uint64_t value) {
  if (DecimalFormatter f = decimal.load(std::memory_order_acquire)) return f(value);
  return FromUtf8(std::to_string(value));
}

std::u16string Widen(const char* text) { return text ? FromUtf8(text) : std::u16string(); }

}  // namespace

void SetDecimalFormatter(DecimalFormatter formatter) noexcept {
  decimal.store(formatter, std::memory_order_release);
}

std::u16string ErrorMessageText(const Error& error) {
  std::u16string text = error.GetText();
  if (!text.empty()) return text;
  if (error.Code() == kWindowsErrorCode) return SystemErrorText(static_cast<std::uint32_t>(error.GetNumber("code")));
  if ((error.Code() >> 16) == FacilityFile) return std::u16string(FileErrorText(error.Code()));
  return text;
}

std::u16string ErrorFieldValue(const Error& error, const char* name, bool quoted) {
  const char16_t* wide = error.GetWideString(name);
  std::u16string text = wide ? std::u16string(wide) : std::u16string();
  const char* narrow = wide ? nullptr : error.GetNarrowString(name);
  if (wide || narrow) {
    if (narrow) text = Widen(narrow);
    if (text.empty() || !quoted) return text;
    return u"\"" + text + u"\"";
  }
  const std::uint64_t n = error.GetNumber(name);
  return Decimal(n) + u" (0x" + Hex(n) + u")";
}

std::u16string ErrorBlock(const Error& error) {
  std::u16string out = ErrorMessageText(error);
  out += u"\n\n    ";
  out += MessageText(Msg::ErrorCode);
  out += u"0x" + Hex(error.Code());
  if (const char* names = error.GetFieldNames()) {
    std::string_view list(names);
    for (bool first = true; !list.empty(); first = false) {
      const std::size_t comma = list.find(',');
      const std::string name(list.substr(0, comma));
      list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
      if (!first) out += u",";
      out += u"\n    " + Widen(name.c_str()) + u" = " + ErrorFieldValue(error, name.c_str(), true);
    }
  }
  const ErrorSite site = error.Site();
  // The line as plain digits: a site reads "file.cc(1234)", not "(1,234)".
  out += u"\n    " + Widen(site.Function) + u" : " + Widen(site.File) + u"(" + FromUtf8(std::to_string(site.Line)) + u")";
  return out;
}

// Walks the chain in a loop, so a long chain needs no deep stack.
std::u16string FullText(const Error& error) {
  std::u16string out = ErrorBlock(error);
  for (Error cause = error.Reason(); cause.Code() != 0; cause = cause.Reason()) {
    out += u"\n";
    out += ErrorBlock(cause);
  }
  return out;
}

}  // namespace Common
