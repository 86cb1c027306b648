// Processor::String, the UTF-16 string of the framework, and the text types
// the interfaces pass: wstring (16-bit units) and credentials.
#pragma once

#include "vellumrig/version.h"

#include <string>

#include <unicode/unistr.h>

namespace Processor {

// Adds no data to ICU's string, so it can be passed wherever a UnicodeString
// is expected.
class String : public icu::UnicodeString {
 public:
  using icu::UnicodeString::UnicodeString;
  String() = default;
  String(const icu::UnicodeString& other) : icu::UnicodeString(other) {}
  String(const std::u16string& text)
      : icu::UnicodeString(text.data(), static_cast<int32_t>(text.size())) {}

  std::u16string ToU16() const { return std::u16string(getBuffer(), static_cast<size_t>(length())); }
};

}  // namespace Processor

namespace VirtualWareRaw {

using wstring = std::u16string;

}  // namespace VirtualWareRaw

namespace Common {

// User then password; counts as given when the user is not empty.
struct Credentials {
  std::u16string User;
  std::u16string Password;

  bool IsGiven() const { return !User.empty(); }
};

}  // namespace Common
