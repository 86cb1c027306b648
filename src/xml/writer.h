// Xml::WriteDocument: writes a tree of tags as an XML document. Module-
// internal; the machine configuration saves its .vmc file through it.
//
// A text read as a space next to a child comes back as a line break, with
// or without indentation, so a document read and written again keeps its
// line structure.
#pragma once

#include <cstdint>

#include "vellumrig/file.h"
#include "xml/tag.h"

namespace Xml {

// Flags of WriteDocument.
inline constexpr std::uint32_t kIndent = 1;         // tabs by depth; without it none at all
inline constexpr std::uint32_t kByteOrderMark = 2;  // begin with EF BB BF
inline constexpr std::uint32_t kNoDeclaration = 4;  // leave out <?xml ... ?>
inline constexpr std::uint32_t kBinary = 8;         // the binary form; other flags ignored

// The declaration line, carriage return and line feed included.
inline constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\r\n";

// Writes `root` and everything under it, then a final "\r\n", then flushes
// the file. A null root writes nothing. Failures are in file.Status.
void WriteDocument(const Tag* root, o_file& file, std::uint32_t flags);

}  // namespace Xml
