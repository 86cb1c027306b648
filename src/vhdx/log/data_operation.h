// Vhdx::DataOperation: one change a log entry makes to the file, kept in
// memory from the scan until the replay. Module-internal; made by the log
// entry reader, applied by ValidLogEntry.
#pragma once

#include "vhdx/file/file.h"

namespace Vhdx {

class DataOperation {
 public:
  DataOperation() = default;
  DataOperation(const DataOperation&) = delete;
  DataOperation& operator=(const DataOperation&) = delete;
  virtual ~DataOperation() = default;

  virtual void Apply(File& file) = 0;
  // The file offset behind the last byte Apply changes.
  virtual std::uint64_t GetEnd() const = 0;
  // How many bytes Apply zeroes.
  virtual std::uint64_t GetZeroedBytes() const = 0;
};

}  // namespace Vhdx
