#include "processor/string_enum.h"

#include <charconv>
#include <cstring>
#include <string_view>

#include "common/message_error.h"
#include "common/site.h"

namespace Processor {

StringEnum::Entry::Entry(const char* declaration, std::int32_t& running) {
  const char* text = declaration ? declaration : "";
  const char* p = text;
  while (*p && *p != ' ' && *p != '\t' && *p != '=') ++p;
  Text.assign(text, p);
  while (*p && (*p < '0' || *p > '9')) ++p;
  std::int32_t number = 0;
  // A first digit 9 is not read as a number: such an entry counts on like
  // one without a value. A number beyond 32 bits counts the same way
  // instead of wrapping.
  const char* end = p + std::strlen(p);
  if (*p >= '0' && *p <= '8' && std::from_chars(p, end, number).ec == std::errc()) {
    Value = number;
  } else {
    Value = running;
  }
  running = Value + 1;
}

const std::string* StringEnum::Find(std::int32_t value) const {
  for (std::size_t i = 0; i < count_; ++i)
    if (entries_[i].Value == value) return &entries_[i].Text;
  return nullptr;
}

void StringEnum::ToString(std::string& out, std::int32_t value) const {
  if (const std::string* text = Find(value)) {
    out = *text;
    return;
  }
  const std::string decimal = std::to_string(value);
  const std::u16string wideValue(decimal.begin(), decimal.end());
  std::u16string wideName;
  for (const char* p = name_; p && *p; ++p) wideName += static_cast<unsigned char>(*p);
  const std::u16string message =
      Common::FillPlaceholders(Common::MessageText(Common::Msg::EnumToStringFailed),
                               {wideValue, wideName});
  constexpr std::uint32_t kLine = 129;
  const Common::ErrorSite site{Common::detail::FileConstant(__FILE__) + kLine, __FILE__,
                               "Processor::StringEnum::ToString", kLine};
  throw Common::Error::WithEnumValue(site, (Common::FacilityStringEnum << 16) | 0x0073,
                                     message.c_str(), decimal.c_str(), name_ ? name_ : "");
}

}  // namespace Processor
