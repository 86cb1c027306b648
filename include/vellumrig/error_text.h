// Rendering of an error chain as text, for hosts: the full text (message,
// code, fields, site, then each cause) and UTF-16/UTF-8 conversion. The
// conversions are inline; FullText is in the host library, and reads
// records only through their kind's operations.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include "vellumrig/error.h"

namespace Common {

inline std::string ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    std::uint32_t cp = text[i];
    if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (cp >= 0xD800 && cp < 0xE000) {
      cp = 0xFFFD;  // a lone surrogate
    }
    if (cp < 0x80) {
      out += static_cast<char>(cp);
    } else if (cp < 0x800) {
      out += static_cast<char>(0xC0 | (cp >> 6));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      out += static_cast<char>(0xE0 | (cp >> 12));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (cp >> 18));
      out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (cp & 0x3F));
    }
  }
  return out;
}

// Invalid sequences become U+FFFD.
inline std::u16string FromUtf8(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    std::uint32_t cp = 0xFFFD;
    size_t len = 1;
    if (c < 0x80) {
      cp = c;
    } else {
      size_t need = (c & 0xE0) == 0xC0 ? 2 : (c & 0xF0) == 0xE0 ? 3 : (c & 0xF8) == 0xF0 ? 4 : 0;
      std::uint32_t v = need == 2 ? (c & 0x1F) : need == 3 ? (c & 0x0F) : (c & 0x07);
      bool ok = need != 0 && i + need <= text.size();
      for (size_t k = 1; ok && k < need; ++k) {
        const auto cc = static_cast<unsigned char>(text[i + k]);
        ok = (cc & 0xC0) == 0x80;
        v = (v << 6) | (cc & 0x3F);
      }
      static constexpr std::uint32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
      if (ok && v >= kMin[need] && v < 0x110000 && !(v >= 0xD800 && v < 0xE000)) {
        cp = v;
        len = need;
      }
    }
    i += len;
    if (cp >= 0x10000) {
      out += static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10));
      out += static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
  }
  return out;
}

// The full text of an error and each of its causes, outer meaning first:
// for each, its message, "Error code: 0x...", its fields and its site. In
// the host library and the module; hosts link the host library.
std::u16string FullText(const Error& error);

}  // namespace Common
