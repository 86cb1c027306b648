#include "vhdx/log/log_sequence_player.h"

#include <algorithm>

#include "common/site.h"
#include "vhdx/log/log_trace.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void LogSequencePlayer::CheckCurrentFileSize(File& file) const {
  if (file.GetSize() < sequence_.back()->GetFlushedFileOffset())
    throw Common::MessageError(VR_SITE, kFileTruncated);
}

namespace {

// What a replay may ask of the file beyond its current end, and how much it
// may zero. An honest log records metadata changes and the growth of a few
// blocks; these bounds keep a crafted one from making the replay (into
// memory, for a read-only open, a 4096-byte range at a time) run without
// end.
constexpr std::uint64_t kMaxGrowth = std::uint64_t{4} << 30;
constexpr std::uint64_t kMaxZeroing = std::uint64_t{4} << 30;

}  // namespace

void LogSequencePlayer::CheckDemands(File& file) const {
  const std::uint64_t size = file.GetSize();
  std::uint64_t reach = 0, zeroed = 0;
  for (const auto& entry : sequence_) {
    reach = std::max(reach, entry->GetReach());
    zeroed += std::min(entry->GetZeroedBytes(), kMaxZeroing + 1);
  }
  const std::uint64_t growth = reach > size ? reach - size : 0;
  if (growth > kMaxGrowth || zeroed > kMaxZeroing)
    throw Common::MessageError(VR_SITE, kLogTooLarge, {LogDecimal(growth), LogDecimal(zeroed)});
}

void LogSequencePlayer::Play(File& file) {
  if (sequence_.empty()) return;
  CheckCurrentFileSize(file);
  CheckDemands(file);
  for (const auto& entry : sequence_) entry->Apply(file);
  const std::uint64_t last = sequence_.back()->GetLastFileOffset();
  if (file.GetSize() < last) file.Expand(last);
}

}  // namespace Vhdx
