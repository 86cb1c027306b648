#include "vhdx/log/log_scanner.h"

#include <algorithm>

#include "common/site.h"
#include "common/message_error.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/file_decorator.h"
#include "vhdx/format/format.h"
#include "vhdx/log/log_entry_reader.h"
#include "vhdx/log/log_trace.h"

namespace Vhdx {
namespace {

// A sequence may be played only if it still holds the entry its newest
// entry names as the oldest one needed.
bool IsUsable(const LogSequence& candidate) {
  if (candidate.empty()) return false;
  const std::uint32_t tail = candidate.back()->GetTail();
  return std::any_of(candidate.begin(), candidate.end(),
                     [tail](const auto& entry) { return entry->GetOffset() == tail; });
}

}  // namespace

LogSequence LogScanner::ReadCandidate(File& file, std::uint32_t& offset, const Common::Guid& logGuid) {
  LogSequence candidate;
  // Ends: a position read again gives the same sequence number once more,
  // which never follows the last one.
  for (;;) {
    auto entry = LogEntryReader::Read(file, logOffset_, offset);
    if (!entry->IsValid() || !(entry->GetLogGuid() == logGuid)) break;
    if (!candidate.empty() && candidate.back()->GetSequenceNumber() + 1 != entry->GetSequenceNumber()) break;
    offset = static_cast<std::uint32_t>((std::uint64_t{offset} + entry->GetLength()) % logLength_);
    candidate.push_back(std::move(entry));
  }
  return candidate;
}

namespace {

// Counts the sectors the scan reads and stops it past its allowance.
class ReadBudget : public FileDecorator {
 public:
  ReadBudget(File& file, std::uint64_t sectors) : FileDecorator(file), left_(sectors), allowed_(sectors) {}

  void Read(std::uint64_t offset, std::size_t size, void* buffer) override {
    const std::uint64_t sectors = (size + Format::Log::kSectorSize - 1) / Format::Log::kSectorSize;
    if (sectors > left_) throw Common::MessageError(VR_SITE, kLogScanLimit, {LogDecimal(allowed_)});
    left_ -= sectors;
    FileDecorator::Read(offset, size, buffer);
  }

 private:
  std::uint64_t left_;
  std::uint64_t allowed_;
};

}  // namespace

LogSequence LogScanner::Scan(const Common::Guid& logGuid) {
  if (logLength_ == 0)
    throw Common::MessageError(VR_SITE, kLogLengthZero);
  const std::uint64_t logSectors = (std::uint64_t{logLength_} + Format::Log::kSectorSize - 1) / Format::Log::kSectorSize;
  ReadBudget budget(file_, ReadAllowance(logSectors));
  return Scan(budget, logGuid);
}

LogSequence LogScanner::Scan(File& file, const Common::Guid& logGuid) {
  LogSequence best;
  std::uint32_t offset = 0;
  // Every round moves forward or ends, so the scan ends once it wraps.
  for (;;) {
    const std::uint32_t start = offset;
    LogSequence candidate = ReadCandidate(file, offset, logGuid);
    if (IsUsable(candidate)) {
      if (best.empty() || candidate.back()->GetSequenceNumber() > best.back()->GetSequenceNumber())
        best = std::move(candidate);
    } else {
      offset = static_cast<std::uint32_t>((std::uint64_t{start} + Format::Log::kSectorSize) % logLength_);
    }
    if (offset <= start) break;
  }
  return best;
}

}  // namespace Vhdx
