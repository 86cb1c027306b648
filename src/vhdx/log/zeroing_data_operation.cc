#include "vhdx/log/zeroing_data_operation.h"

#include "vhdx/format/format.h"
#include "vhdx/log/log_trace.h"

namespace Vhdx {

void ZeroingDataOperation::Apply(File& file) {
  TraceLog(Common::Msg::LogApplyingZero, {LogDecimal(fileOffset_), LogDecimal(zeroLength_)});
  constexpr std::uint64_t kSector = Format::Log::kSectorSize;
  const std::uint64_t pieces = zeroLength_ / kSector;
  std::uint64_t at = fileOffset_;
  for (std::uint64_t i = 0; i < pieces; ++i, at += kSector) file.WriteZero(at, kSector);
  if (const std::uint64_t rest = pieces & 0xFFF; rest != 0) file.WriteZero(at, rest);
}

std::uint64_t ZeroingDataOperation::GetZeroedBytes() const {
  const std::uint64_t pieces = zeroLength_ / Format::Log::kSectorSize;
  return pieces * Format::Log::kSectorSize + (pieces & 0xFFF);
}

std::uint64_t ZeroingDataOperation::GetEnd() const {
  const std::uint64_t zeroed = GetZeroedBytes();
  return zeroed > UINT64_MAX - fileOffset_ ? UINT64_MAX : fileOffset_ + zeroed;
}

}  // namespace Vhdx
