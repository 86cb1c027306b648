// The text of the binary document form: UTF-16 held as UTF-8 bytes. Internal
// to src/xml.
//
// A tree may carry any 16-bit units, control codes and lone surrogates
// among them (entities put them there), and the binary form must give them
// back unchanged. So a lone surrogate is stored as the three bytes its value
// would take, and the reader takes those back; everything else is plain
// UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace Xml {

void AppendStoredText(std::string& out, std::u16string_view text);

// False for bytes that no writer of the form produces: a cut sequence, an
// overlong form, a value above 0x10FFFF. `out` may then hold part of the text.
bool AppendStoredTextAsUtf16(std::u16string& out, std::string_view bytes);

}  // namespace Xml
