// Vhdx::LogScanner: finds the active sequence of a container's log, the
// run of entries that a replay has to play. Module-internal; PlayLog uses
// it once per open.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "common/guid.h"
#include "vhdx/file.h"
#include "vhdx/log_entry.h"

namespace Vhdx {

using LogSequence = std::vector<std::shared_ptr<LogEntry>>;

class LogScanner {
 public:
  // The file must outlive the scanner.
  LogScanner(File& file, std::uint64_t logOffset, std::uint32_t logLength)
      : file_(file), logOffset_(logOffset), logLength_(logLength) {}
  LogScanner(const LogScanner&) = delete;
  LogScanner& operator=(const LogScanner&) = delete;

  // The usable sequence of entries for `logGuid` whose last sequence number
  // is the greatest (the first found on a tie); empty if there is none.
  // Raises 0x3C002B for a log of length 0.
  LogSequence Scan(const Common::Guid& logGuid);

 private:
  // The entries that follow each other from `offset` on, which is moved
  // behind the last of them.
  LogSequence ReadCandidate(std::uint32_t& offset, const Common::Guid& logGuid);

  File& file_;
  std::uint64_t logOffset_;
  std::uint32_t logLength_;
};

}  // namespace Vhdx
