// Vhdx::ZeroingDataOperation: the change of a log's zero descriptor.
// Module-internal; made by the log entry reader.
#pragma once

#include <cstdint>

#include "vhdx/log/data_operation.h"

namespace Vhdx {

class ZeroingDataOperation : public DataOperation {
 public:
  ZeroingDataOperation(std::uint64_t fileOffset, std::uint64_t zeroLength)
      : fileOffset_(fileOffset), zeroLength_(zeroLength) {}

  // Zeroes ZeroLength / 4096 whole sectors, then as many more bytes as the
  // low 12 bits of that sector count say (not of ZeroLength). Files already
  // replayed this way must keep reading the same, so the rule stays.
  void Apply(File& file) override;
  std::uint64_t GetEnd() const override;
  std::uint64_t GetZeroedBytes() const override;

 private:
  std::uint64_t fileOffset_;
  std::uint64_t zeroLength_;
};

}  // namespace Vhdx
