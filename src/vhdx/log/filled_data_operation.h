// Vhdx::FilledDataOperation: the change of a log's data descriptor, one
// whole sector with its first and last bytes already restored from the
// descriptor. Module-internal; made by the log entry reader.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "vhdx/log/data_operation.h"
#include "vhdx/format/format.h"

namespace Vhdx {

using SectorBuffer = std::array<std::uint8_t, Format::Log::kSectorSize>;

class FilledDataOperation : public DataOperation {
 public:
  FilledDataOperation(std::uint64_t fileOffset, std::unique_ptr<SectorBuffer> sector)
      : fileOffset_(fileOffset), sector_(std::move(sector)) {}

  void Apply(File& file) override;
  std::uint64_t GetEnd() const override;
  std::uint64_t GetZeroedBytes() const override { return 0; }

 private:
  std::uint64_t fileOffset_;
  std::unique_ptr<SectorBuffer> sector_;
};

}  // namespace Vhdx
