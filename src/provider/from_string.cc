#include "provider/from_string.h"

#include "common/site.h"

namespace VirtualWareRaw {

std::uint64_t FromStringU64(const std::u16string& text) {
  std::size_t begin = text.find_first_not_of(u' ');
  std::size_t end = text.find_last_not_of(u' ');
  if (begin == std::u16string::npos) throw Common::Error(VR_SITE, 1);
  ++end;
  unsigned base = 10;
  if (text[end - 1] == u'H' || text[end - 1] == u'h') {
    base = 16;
    --end;
  } else if (end - begin > 2 && text[begin] == u'0' && (text[begin + 1] == u'x' || text[begin + 1] == u'X')) {
    base = 16;
    begin += 2;
  }
  if (begin == end) throw Common::Error(VR_SITE, 1);
  std::uint64_t value = 0;
  for (std::size_t i = begin; i < end; ++i) {
    const char16_t c = text[i];
    unsigned digit;
    if (c >= u'0' && c <= u'9') digit = c - u'0';
    else if (base == 16 && c >= u'a' && c <= u'f') digit = c - u'a' + 10;
    else if (base == 16 && c >= u'A' && c <= u'F') digit = c - u'A' + 10;
    else throw Common::Error(VR_SITE, 1);
    if (value > (UINT64_MAX - digit) / base) throw Common::Error(VR_SITE, 1);
    value = value * base + digit;
  }
  return value;
}

std::uint32_t FromStringU32(const std::u16string& text) {
  return static_cast<std::uint32_t>(FromStringU64(text));
}

}  // namespace VirtualWareRaw
