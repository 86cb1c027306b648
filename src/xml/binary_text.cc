#include "xml/binary_text.h"

#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "xml/utf8.h"  // the encoding side

namespace Xml {

void AppendStoredText(std::string& out, std::u16string_view text) {
  out.reserve(out.size() + text.size());
  for (std::size_t i = 0; i < text.size();) {
    if (text[i] < 0x80) {
      out.push_back(static_cast<char>(text[i++]));
      continue;
    }
    const CodePointAt c = ReadCodePoint(text, i);
    AppendCodePointAsUtf8(out, c.Value);
    i += c.Units;
  }
}

bool AppendStoredTextAsUtf16(std::u16string& out, std::string_view bytes) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* const end = p + bytes.size();
  // No sequence gives more units than it has bytes: room for all of them
  // is made once, and what is left over cut off at the end.
  const std::size_t had = out.size();
  out.resize(had + bytes.size());
  char16_t* const first = out.data() + had;
  char16_t* to = first;
  bool ok = true;
  while (p < end) {
    // Most text is ASCII: it is checked for high bits and widened sixteen
    // (then eight) bytes at a time.
#ifdef __SSE2__
    const __m128i zero = _mm_setzero_si128();
    while (end - p >= 16) {
      const __m128i bytes16 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      if (_mm_movemask_epi8(bytes16) != 0) break;
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_unpacklo_epi8(bytes16, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8), _mm_unpackhi_epi8(bytes16, zero));
      p += 16;
      to += 16;
    }
#endif
    while (end - p >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p, 8);
      if (word & 0x8080808080808080ull) break;
      for (int i = 0; i < 8; ++i) to[i] = p[i];
      p += 8;
      to += 8;
    }
    if (p == end) break;
    const unsigned char lead = *p;
    if (lead < 0x80) {
      *to++ = lead;
      ++p;
      continue;
    }
    std::size_t length;
    char32_t value;
    char32_t least;
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2, value = lead & 0x1F, least = 0x80;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3, value = lead & 0x0F, least = 0x800;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4, value = lead & 0x07, least = 0x10000;
    } else {
      ok = false;
      break;
    }
    if (static_cast<std::size_t>(end - p) < length) {
      ok = false;
      break;
    }
    for (std::size_t i = 1; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) ok = false;
      value = (value << 6) | (p[i] & 0x3F);
    }
    if (!ok || value < least || value > 0x10FFFF) {
      ok = false;
      break;
    }
    if (value < 0x10000) {
      *to++ = static_cast<char16_t>(value);
    } else {
      value -= 0x10000;
      *to++ = static_cast<char16_t>(0xD800 | (value >> 10));
      *to++ = static_cast<char16_t>(0xDC00 | (value & 0x3FF));
    }
    p += length;
  }
  out.resize(had + static_cast<std::size_t>(to - first));
  return ok;
}

}  // namespace Xml
