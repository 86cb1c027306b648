#include "vhdx/log/zeroing_data_operation.h"

#include "vhdx/format/format.h"
#include "vhdx/log/log_trace.h"

namespace Vhdx {

void ZeroingDataOperation::Apply(File& file) {
  TraceLog(Common::Msg::LogApplyingZero, {LogDecimal(fileOffset_), LogDecimal(zeroLength_)});
  constexpr std::uint64_t kSector = Format::Log::kSectorSize;
  const std::uint64_t pieces = zeroLength_ / kSector;
  // One call for all the whole sectors: a file zeroes a long run in large
  // pieces (or keeps it as pieces of its own), where a call per sector
  // would cost a million calls for a hostile 4 GiB descriptor.
  const std::uint64_t whole = pieces * kSector;
  if (whole != 0) file.WriteZero(fileOffset_, whole);
  if (const std::uint64_t rest = pieces & 0xFFF; rest != 0) file.WriteZero(fileOffset_ + whole, rest);
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
