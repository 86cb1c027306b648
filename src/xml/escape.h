// Escaping of element text and attribute values for the XML writer, shaped
// so that the reader's whitespace normalisation gives the same text back.
// Internal to src/xml.
#pragma once

#include <string>
#include <string_view>

namespace Xml {

// Appends `text` as UTF-8 XML. Element text with line breaks goes into a
// CDATA section where it can; spaces the reader would fold away (leading,
// trailing, doubled) become "&#32;".
void AppendEscaped(std::string& out, std::u16string_view text, bool attribute);

// Appends a comment body so that it cannot end the comment early: "--"
// gets a zero-width space between its dashes.
void AppendCommentBody(std::string& out, std::u16string_view body);

}  // namespace Xml
