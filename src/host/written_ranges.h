// The byte ranges one open file wrote since they were last committed, kept
// merged in memory. Host library only; used by the tracking files.
//
// Memory stays bounded: past `limit` ranges every range is widened to
// aligned blocks (1 MiB, then larger), which reports more than was written,
// never less.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace Host::detail {

class WrittenRanges {
 public:
  using Range = std::pair<std::uint64_t, std::uint64_t>;  // start, end (exclusive)

  explicit WrittenRanges(std::size_t limit = 4096) : limit_(limit < 2 ? 2 : limit) {}

  void Add(std::uint64_t start, std::uint64_t end);
  bool Empty() const { return ranges_.empty(); }
  std::size_t Count() const { return ranges_.size(); }
  // The ranges in order, leaving none; the next ones are exact again.
  std::vector<Range> Take();

 private:
  void Insert(std::uint64_t start, std::uint64_t end);
  void Coarsen();

  const std::size_t limit_;
  std::uint64_t granule_ = 1;
  std::map<std::uint64_t, std::uint64_t> ranges_;  // start -> end
};

// Sorts `ranges` and merges those that overlap or touch.
std::vector<WrittenRanges::Range> MergeRanges(std::vector<WrittenRanges::Range> ranges);

}  // namespace Host::detail
