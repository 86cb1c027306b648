// Vhdx::DiskDeleter: removes a container together with its whole chain of
// parents, top first. Module-internal; the disk facade and the tools.
#pragma once

#include <string>

#include "vellumrig/folder.h"

namespace Vhdx {

class DiskDeleter {
 public:
  // The chain is opened first, so a chain with a missing parent deletes
  // nothing. Raises 0x3C0009 with the cause as reason; files deleted before
  // a failure stay deleted.
  static void Delete(rio_dir& dir, const std::u16string& name);
};

}  // namespace Vhdx
