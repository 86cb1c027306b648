// Vhdx::ValidLogEntry: a log entry whose header, descriptors, data sectors
// and checksum all passed, with its changes held in memory. Module-internal;
// made by LogEntryReader.
#pragma once

#include <algorithm>
#include <cstdint>

#include "vhdx/log/data_operation_consumer.h"
#include "vhdx/log/log_entry.h"

namespace Vhdx {

class ValidLogEntry : public LogEntry {
 public:
  struct Fields {
    std::uint32_t Offset = 0;
    std::uint32_t Length = 0;
    std::uint32_t Tail = 0;
    std::uint64_t SequenceNumber = 0;
    Common::Guid LogGuid{};
    std::uint64_t FlushedFileOffset = 0;
    std::uint64_t LastFileOffset = 0;
  };

  ValidLogEntry(const Fields& fields, DataOperationList operations)
      : fields_(fields), operations_(std::move(operations)) {}

  bool IsValid() const override { return true; }
  std::uint32_t GetOffset() const override { return fields_.Offset; }
  std::uint32_t GetLength() const override { return fields_.Length; }
  std::uint32_t GetTail() const override { return fields_.Tail; }
  std::uint64_t GetSequenceNumber() const override { return fields_.SequenceNumber; }
  Common::Guid GetLogGuid() const override { return fields_.LogGuid; }
  std::uint64_t GetFlushedFileOffset() const override { return fields_.FlushedFileOffset; }
  std::uint64_t GetLastFileOffset() const override { return fields_.LastFileOffset; }
  void Apply(File& file) override {
    for (const auto& operation : operations_) operation->Apply(file);
  }
  std::uint64_t GetReach() const override {
    std::uint64_t reach = fields_.LastFileOffset;
    for (const auto& operation : operations_) reach = std::max(reach, operation->GetEnd());
    return reach;
  }
  std::uint64_t GetZeroedBytes() const override {
    std::uint64_t zeroed = 0;
    for (const auto& operation : operations_) zeroed = std::min(UINT64_MAX - zeroed, operation->GetZeroedBytes()) + zeroed;
    return zeroed;
  }

 private:
  Fields fields_;
  DataOperationList operations_;
};

}  // namespace Vhdx
