// XML from text, and the error that tells where a document stopped making
// sense. Module-internal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/error.h"
#include "xml/tag.h"

namespace VirtualWareRaw {

// 0x3B0001 "Failed to parse the XML." with the fields `line` and `column`.
Common::Error SyntaxError(const Common::ErrorSite& site, std::uint32_t line, std::uint32_t column);

// Parses `text` into a new tree; on success `tag` owns it and an earlier
// tree is freed. Returns the memory file's failure or the syntax error.
Common::Error UnserializeXML(const std::u16string& text, std::unique_ptr<Xml::Tag>& tag);

}  // namespace VirtualWareRaw
