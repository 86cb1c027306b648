// Vhdx::LogSequencePlayer: makes the changes of an active log sequence in
// the file, entry by entry. Module-internal; PlayLog builds it from what
// LogScanner found.
#pragma once

#include "vhdx/file/file.h"
#include "vhdx/log/log_scanner.h"

namespace Vhdx {

class LogSequencePlayer {
 public:
  explicit LogSequencePlayer(LogSequence sequence) : sequence_(std::move(sequence)) {}
  LogSequencePlayer(const LogSequencePlayer&) = delete;
  LogSequencePlayer& operator=(const LogSequencePlayer&) = delete;

  // Plays every entry from the first, not just those from the tail on,
  // then grows the file to the last entry's LastFileOffset; it never
  // shrinks it. Raises 0x3C002A, before any change, when the file is
  // shorter than the last entry's FlushedFileOffset.
  void Play(File& file);

 private:
  void CheckCurrentFileSize(File& file) const;
  // Raises 0x3C002B for a sequence that would grow or zero the file by more
  // than any honest log does.
  void CheckDemands(File& file) const;

  LogSequence sequence_;
};

}  // namespace Vhdx
