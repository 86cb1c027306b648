// Files over POSIX descriptors: ri_file for reading, rio_file for reading
// and writing. Host library only; folders hand them out.
//
// Each file keeps its own position and transfers with pread/pwrite, so
// nothing is shared with other descriptors of the same file. Writes go
// straight to the descriptor; Flush asks the system to put them on disk.
// Locks are flock locks, taken without waiting.
#pragma once

#include <memory>
#include <string>

#include "vellumrig/error.h"
#include "vellumrig/file.h"

namespace Host::detail {

// `path` (UTF-8) opened for reading. A folder is refused. Null, with
// `error` set, on failure.
std::unique_ptr<ri_file> OpenFileForReading(const std::string& path, Common::Error& error);

// `path` opened for reading and writing; `create` makes it, or empties what
// is there.
std::unique_ptr<rio_file> OpenFileForWriting(const std::string& path, bool create,
                                             Common::Error& error);

}  // namespace Host::detail
