#include "vhdx/log_sequence_player.h"

#include "common/site.h"
#include "vhdx/errors.h"

namespace Vhdx {

void LogSequencePlayer::CheckCurrentFileSize(File& file) const {
  if (file.GetSize() < sequence_.back()->GetFlushedFileOffset())
    throw Common::MessageError(VR_SITE, kFileTruncated);
}

void LogSequencePlayer::Play(File& file) {
  if (sequence_.empty()) return;
  CheckCurrentFileSize(file);
  for (const auto& entry : sequence_) entry->Apply(file);
  const std::uint64_t last = sequence_.back()->GetLastFileOffset();
  if (file.GetSize() < last) file.Expand(last);
}

}  // namespace Vhdx
