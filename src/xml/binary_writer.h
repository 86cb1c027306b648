// Writing the binary form of a tag tree, layout 1: "BXML", the bytes 1 and
// 1, then the root tag with names kept in a dictionary. Internal to src/xml;
// WriteDocument writes through it for its binary flag.
#pragma once

#include "vellumrig/file.h"
#include "xml/tag.h"

namespace Xml {

// True when the file holds no error afterwards. A null root writes
// nothing. Does not flush.
bool WriteBinaryDocument(const Tag* root, o_file& file);

}  // namespace Xml
