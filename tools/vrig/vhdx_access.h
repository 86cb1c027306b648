// What the vrig vhdx commands share: the folder and name of a path, the
// parsing of sizes and numbers, zero detection and the progress line of
// long transfers. For tools/vrig only.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vellumrig/file_tracker.h"
#include "vellumrig/folder.h"
#include "vhdx/format/format.h"

namespace vrig {

// Transfers move this much per engine call: several 4 MiB blocks, so that
// the engine sees whole blocks and the process few calls.
inline constexpr std::size_t kTransferBytes = 16u << 20;
// Zero runs are found at this grain: big enough that mixed data still moves
// in large writes, small enough that sparse images leave real holes.
inline constexpr std::size_t kZeroGrain = 64u << 10;

// The largest virtual disk the format describes.
inline constexpr std::uint64_t kMaxVirtualSize = Vhdx::Format::kMaxVirtualSize;

// The folder of a command-line path (relative to the current folder) and
// the file's name in it.
struct Place {
  std::unique_ptr<rio_dir> Folder;
  std::u16string Name;
};
Place PlaceOf(const std::string& path, bool readOnly);
// With a tracker, a writable place is the tracker's folder, so that every
// byte the engine writes there is on its record.
Place PlaceOf(const std::string& path, bool readOnly, Host::TrackingHost* tracker);

// Takes "--tracker <db>" out of `args`: the tracker kept there, or null.
std::unique_ptr<Host::TrackingHost> TrackerOption(std::vector<std::string>& args);
// Takes "<flag> <value>" out of `args`; false when the flag is absent.
bool TakeOption(std::vector<std::string>& args, const std::string& flag, std::string& value);

// Takes "--sector-size 512|4096" out of `args`; 512 when absent.
std::uint32_t SectorSizeOption(std::vector<std::string>& args);
// A container made whole under its own name is new to the tracker, which
// then counts all of it as changed for every ID it gave out before.
void Track(Host::TrackingHost* tracker, const std::string& path);

bool PathExists(const std::string& path);

// A new file is made under a name of its own beside its target and takes
// the target's name only when whole: a run stopped half way leaves nothing
// under the name a retry wants, and nothing that passes for a finished file.
// The name carries the process id, so two runs never share it; the file is
// removed again unless published.
class PartialFile {
 public:
  explicit PartialFile(std::string target);
  ~PartialFile();
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  const std::string& Path() const { return partial_; }
  // Renames it to the target, never over a file that appeared meanwhile.
  void Publish();

 private:
  std::string target_;
  std::string partial_;
  bool published_ = false;
};

// A decimal number; `what` names it in the usage error.
std::uint64_t ParseNumber(const std::string& text, const std::string& what);
// The same, at most 2^32-1.
std::uint32_t ParseNumber32(const std::string& text, const std::string& what);
// A number of bytes with an optional K, M, G or T (binary multiples).
std::uint64_t ParseSize(const std::string& text);

bool IsZero(const std::uint8_t* data, std::size_t size);

// Calls `run(offset, length)` for each stretch of `data` that is not all
// zero, in order, at the grain above; a stretch is at most `size` long.
template <class Run>
void ForEachDataRun(const std::uint8_t* data, std::size_t size, Run run) {
  std::size_t start = 0;
  bool inData = false;
  for (std::size_t at = 0; at < size; at += kZeroGrain) {
    const std::size_t n = size - at < kZeroGrain ? size - at : kZeroGrain;
    const bool zero = IsZero(data + at, n);
    if (!zero && !inData) start = at;
    if (zero && inData) run(start, at - start);
    inData = !zero;
  }
  if (inData) run(start, size - start);
}

// The progress of a transfer: a bar on standard error while it is a
// terminal, and a closing line with the rate in any case.
class Progress {
 public:
  explicit Progress(std::uint64_t total);
  void Advance(std::uint64_t done);
  // Prints "<bytes> bytes in <seconds> s (<rate> bytes/s)".
  void Finish();

 private:
  std::uint64_t total_;
  bool terminal_;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point shown_;
};

}  // namespace vrig
