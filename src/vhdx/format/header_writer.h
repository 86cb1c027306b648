// Vhdx::HeaderWriter: rewrites both header copies with a HeaderInfo, the
// copy not in force first. No flush: that is the caller's. Module-internal;
// log replay, the write-GUID renewal and container creation use it.
#pragma once

#include "vhdx/file/file.h"
#include "vhdx/format/header_info.h"

namespace Vhdx {

class HeaderWriter {
 public:
  static void Write(File& file, const HeaderInfo& info);
};

}  // namespace Vhdx
