#include "xml/escape.h"

#include "xml/utf8.h"

namespace Xml {
namespace {

bool IsNonCharacter(char32_t c) { return c == 0xFFFE || c == 0xFFFF; }

// Whether the reader's CDATA scan gives this text back unchanged.
bool FitsCData(std::u16string_view text) {
  if (text.find(u'\n') == std::u16string_view::npos) return false;
  if (text.find(u"]]>") != std::u16string_view::npos) return false;
  for (std::size_t i = 0; i < text.size();) {
    const auto [c, units] = ReadCodePoint(text, i);
    if ((c < 0x20 && c != '\t' && c != '\n') || IsSurrogate(c) || IsNonCharacter(c)) return false;
    i += units;
  }
  return true;
}

void AppendLineBreaksAsCrLf(std::string& out, std::u16string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const auto [c, units] = ReadCodePoint(text, i);
    if (c == '\n') out += "\r\n";
    else AppendCodePointAsUtf8(out, c);
    i += units;
  }
}

}  // namespace

void AppendEscaped(std::string& out, std::u16string_view text, bool attribute) {
  if (!attribute && FitsCData(text)) {
    out += "<![CDATA[";
    AppendLineBreaksAsCrLf(out, text);
    out += "]]>";
    return;
  }
  bool afterSpace = false;
  for (std::size_t i = 0; i < text.size();) {
    const auto [c, units] = ReadCodePoint(text, i);
    const bool edge = i == 0 || i + units == text.size();
    i += units;
    if (c == ' ') {
      out += afterSpace || edge ? "&#32;" : " ";
      afterSpace = true;
      continue;
    }
    afterSpace = false;
    if (c < 0x20 || IsSurrogate(c) || IsNonCharacter(c)) {
      out += "&#";
      out += std::to_string(static_cast<std::uint32_t>(c));
      out += ';';
    } else if (c == '<') {
      out += "&lt;";
    } else if (c == '&') {
      out += "&amp;";
    } else if (c == '"' && attribute) {
      out += "&quot;";
    } else {
      AppendCodePointAsUtf8(out, c);
    }
  }
}

void AppendCommentBody(std::string& out, std::u16string_view body) {
  bool afterDash = false;
  for (std::size_t i = 0; i < body.size();) {
    auto [c, units] = ReadCodePoint(body, i);
    i += units;
    if (IsSurrogate(c) || IsNonCharacter(c)) c = 0xFFFD;
    if (c == '\n') {
      out += "\r\n";
    } else {
      if (c == '-' && afterDash) AppendCodePointAsUtf8(out, 0x200B);
      AppendCodePointAsUtf8(out, c);
    }
    afterDash = c == '-';
  }
}

}  // namespace Xml
