// Vhdx::LogEntry: one entry of a container's log as the scan found it,
// either valid (with the changes it makes) or invalid (a position where no
// usable entry stands). Module-internal; made by LogEntryReader, used by
// LogScanner and LogSequencePlayer.
#pragma once

#include <cstdint>

#include "common/guid.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class LogEntry {
 public:
  LogEntry() = default;
  LogEntry(const LogEntry&) = delete;
  LogEntry& operator=(const LogEntry&) = delete;
  virtual ~LogEntry() = default;

  virtual bool IsValid() const = 0;
  // Offsets are from the start of the log, not of the file.
  virtual std::uint32_t GetOffset() const = 0;
  virtual std::uint32_t GetLength() const = 0;
  virtual std::uint32_t GetTail() const = 0;
  virtual std::uint64_t GetSequenceNumber() const = 0;
  virtual Common::Guid GetLogGuid() const = 0;
  virtual std::uint64_t GetFlushedFileOffset() const = 0;
  virtual std::uint64_t GetLastFileOffset() const = 0;
  // Makes the entry's changes, in descriptor order.
  virtual void Apply(File& file) = 0;
  // The file offset behind the last byte the changes touch, and how many
  // bytes they zero: what the replay of a hostile log is held against.
  virtual std::uint64_t GetReach() const = 0;
  virtual std::uint64_t GetZeroedBytes() const = 0;
};

}  // namespace Vhdx
