// Vhdx::LogScanner: finds the active sequence of a container's log, the
// run of entries that a replay has to play. Module-internal; PlayLog uses
// it once per open.
#pragma once

#include <algorithm>

#include <cstdint>
#include <memory>
#include <vector>

#include "common/guid.h"
#include "vhdx/file/file.h"
#include "vhdx/log/log_entry.h"

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
  // Raises 0x3C002B for a log of length 0, and for a log that needs more
  // sector reads to scan than ReadAllowance gives it.
  LogSequence Scan(const Common::Guid& logGuid);

  // A scan tries every sector of the log, and an entry there may claim as
  // many sectors as the file holds behind it: a log crafted so makes the
  // scan quadratic in the file's size. An honest log is read a few times
  // over at most (valid sequences are stepped over whole), so 256 reads per
  // sector leave ample room; a huge log gets no more than 2^22 reads in all
  // (16 GiB), but always 4 per sector.
  static std::uint64_t ReadAllowance(std::uint64_t logSectors) {
    return std::min(logSectors * 256, std::max(logSectors * 4, std::uint64_t{1} << 22));
  }

 private:
  // The entries that follow each other from `offset` on, which is moved
  // behind the last of them.
  LogSequence ReadCandidate(File& file, std::uint32_t& offset, const Common::Guid& logGuid);
  LogSequence Scan(File& file, const Common::Guid& logGuid);

  File& file_;
  std::uint64_t logOffset_;
  std::uint32_t logLength_;
};

}  // namespace Vhdx
