// Vhdx::FileValidator: the checks every open starts with. Module-internal;
// the open paths call CheckVersion.
#pragma once

#include "vhdx/file/file.h"

namespace Vhdx {

class FileValidator {
 public:
  // The file identifier must begin "vhdxfile", else 0x3C0003.
  static void CheckFileId(File& file);
  // CheckFileId, then the header in force must have Version 1, else
  // 0x3C0021 (or 0x3C0010 without a valid header).
  static void CheckVersion(File& file);
};

}  // namespace Vhdx
