// UTF-8 as the XML reader and writer see it: strict decoding into UTF-16
// and encoding of single code points. Internal to src/xml.
#pragma once

#include <string>
#include <string_view>

namespace Xml {

// Appends the UTF-16 form of `bytes`. Refuses overlong forms, surrogates,
// values above 0x10FFFF, U+FFFE, U+FFFF and control bytes other than tab,
// line feed and carriage return; on refusal `out` may already hold some of the text.
bool AppendUtf8AsUtf16(std::u16string& out, std::string_view bytes);

// Appends one code point (at most 0x10FFFF, not checked further) as UTF-8.
void AppendCodePointAsUtf8(std::string& out, char32_t codePoint);

// Appends one code point as UTF-16: a surrogate pair from 0x10000 on.
void AppendCodePointAsUtf16(std::u16string& out, char32_t codePoint);

// The code point at `text[i]` and how many units it takes: a well-formed
// surrogate pair is one code point, a lone surrogate stands for itself.
struct CodePointAt {
  char32_t Value;
  std::size_t Units;
};
CodePointAt ReadCodePoint(std::u16string_view text, std::size_t i);

inline bool IsSurrogate(char32_t c) { return c >= 0xD800 && c <= 0xDFFF; }

}  // namespace Xml
