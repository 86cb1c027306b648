// Vhdx::HeaderReader: the HeaderInfo of the header in force, read afresh
// on every call. Module-internal; anything that needs a header field.
#pragma once

#include "vhdx/file/file.h"
#include "vhdx/format/header_info.h"

namespace Vhdx {

class HeaderReader {
 public:
  // Throws 0x3C0010 when neither copy is valid.
  static HeaderInfo Read(File& file);
};

}  // namespace Vhdx
