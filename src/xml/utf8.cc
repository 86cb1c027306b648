#include "xml/utf8.h"

namespace Xml {
namespace {

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

}  // namespace

bool AppendUtf8AsUtf16(std::u16string& out, std::string_view bytes) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* const end = p + bytes.size();
  out.reserve(out.size() + bytes.size());
  while (p < end) {
    const unsigned char lead = *p;
    if (lead < 0x80) {
      if (lead < 0x20 && lead != '\t' && lead != '\n' && lead != '\r') return false;
      out.push_back(lead);
      ++p;
      continue;
    }
    // The permitted range of the second byte rules out overlong forms,
    // surrogates and values past 0x10FFFF in one comparison.
    unsigned char low = 0x80, high = 0xBF;
    std::size_t length;
    char32_t value;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
      value = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      value = lead & 0x0F;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      value = lead & 0x07;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (static_cast<std::size_t>(end - p) < length) return false;
    if (p[1] < low || p[1] > high) return false;
    for (std::size_t i = 1; i < length; ++i) {
      if (!IsContinuation(p[i])) return false;
      value = (value << 6) | (p[i] & 0x3F);
    }
    if (value == 0xFFFE || value == 0xFFFF) return false;
    AppendCodePointAsUtf16(out, value);
    p += length;
  }
  return true;
}

void AppendCodePointAsUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

void AppendCodePointAsUtf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out.push_back(static_cast<char16_t>(c));
  } else {
    c -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 | (c >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (c & 0x3FF)));
  }
}

CodePointAt ReadCodePoint(std::u16string_view text, std::size_t i) {
  const char16_t unit = text[i];
  if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < text.size()) {
    const char16_t next = text[i + 1];
    if (next >= 0xDC00 && next <= 0xDFFF)
      return {0x10000 + ((char32_t{unit} - 0xD800) << 10) + (next - 0xDC00), 2};
  }
  return {unit, 1};
}

}  // namespace Xml
