// Vhdx::PlayLog: brings a container up to date with its log before anything
// else reads it. Module-internal; the disk file open calls it once per file,
// with the writable file or with an in-memory overlay over a read-only one.
#pragma once

#include "vhdx/file/file.h"

namespace Vhdx {

// True when a log was replayed: its changes made, the header's LogGuid
// cleared and the file flushed once. False, with the log not read, when the
// header names no log. Raises 0x3C002B when the log holds no usable
// sequence or lies outside the file, and 0x3C002A when the file is shorter
// than the log says it was; then the header is left as it was, so that the
// next open tries again.
bool PlayLog(File& file);

}  // namespace Vhdx
