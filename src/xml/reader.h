// Xml::ParseDocument: reads an XML document into a tree of tags. Module-
// internal; the machine configuration reads its .vmc file through it.
//
// No general XML processor: no namespaces, no entity declarations, no
// document type subset. Whitespace in element content is normalised to
// single spaces (unless xml:space="preserve"), so that the writer can turn
// those spaces back into the line breaks they stood for.
#pragma once

#include <cstdint>
#include <memory>

#include "vellumrig/file.h"
#include "xml/tag.h"

namespace Xml {

// Elements nest at most this deep, the root being depth 1: the parse
// recurses once per level.
inline constexpr std::uint32_t kMaxDepth = 1000;

// Destroys what `root` held, then parses `file`. True on success, with the
// tree in `root`; on failure `root` is empty. Either way `line` (from 1) and
// `column` (from 1, in bytes) tell where the scan stopped. A file that shows
// an error in its Status after reading fails the parse.
bool ParseDocument(std::unique_ptr<Tag>& root, i_file& file, std::uint32_t& line,
                   std::uint32_t& column);

}  // namespace Xml
