// Vhdx::LogEntryReader: reads and checks the log entry at one offset of the
// log, with its descriptors and data sectors. Module-internal; LogScanner
// calls it for every position it tries.
#pragma once

#include <cstdint>
#include <memory>

#include "vhdx/file/file.h"
#include "vhdx/log/log_entry.h"

namespace Vhdx {

class LogEntryReader {
 public:
  // A ValidLogEntry, or an InvalidLogEntry for any fault of the content:
  // bad content never raises. The entry's later sectors follow its first
  // one in the file, with no wrapping at the end of the log; an entry that
  // claims more sectors than the file holds is invalid before anything of
  // it beyond the first sector is read. Failures of the file pass through.
  static std::shared_ptr<LogEntry> Read(File& file, std::uint64_t logOffset, std::uint32_t entryOffset);
};

}  // namespace Vhdx
