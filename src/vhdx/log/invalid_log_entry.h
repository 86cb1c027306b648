// Vhdx::InvalidLogEntry: what the log entry reader gives for a position
// where no usable entry stands. Only IsValid may be asked; everything else
// raises 0x3C0029, since a caller that asks has missed the check.
// Module-internal; made by LogEntryReader.
#pragma once

#include "vhdx/log/log_entry.h"

namespace Vhdx {

class InvalidLogEntry : public LogEntry {
 public:
  bool IsValid() const override { return false; }
  std::uint32_t GetOffset() const override { ThrowAccessToInvalid(); }
  std::uint32_t GetLength() const override { ThrowAccessToInvalid(); }
  std::uint32_t GetTail() const override { ThrowAccessToInvalid(); }
  std::uint64_t GetSequenceNumber() const override { ThrowAccessToInvalid(); }
  Common::Guid GetLogGuid() const override { ThrowAccessToInvalid(); }
  std::uint64_t GetFlushedFileOffset() const override { ThrowAccessToInvalid(); }
  std::uint64_t GetLastFileOffset() const override { ThrowAccessToInvalid(); }
  void Apply(File&) override { ThrowAccessToInvalid(); }
  std::uint64_t GetReach() const override { ThrowAccessToInvalid(); }
  std::uint64_t GetZeroedBytes() const override { ThrowAccessToInvalid(); }

 private:
  [[noreturn]] static void ThrowAccessToInvalid();
};

}  // namespace Vhdx
