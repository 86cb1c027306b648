#include "host/written_ranges.h"

#include <algorithm>
#include <limits>

namespace Host::detail {
namespace {

constexpr std::uint64_t kFirstGranule = 1 << 20;
constexpr std::uint64_t kMax = std::numeric_limits<std::uint64_t>::max();

std::uint64_t RoundUp(std::uint64_t value, std::uint64_t granule) {
  const std::uint64_t rest = value % granule;
  if (rest == 0) return value;
  return value > kMax - (granule - rest) ? kMax : value + (granule - rest);
}

}  // namespace

void WrittenRanges::Add(std::uint64_t start, std::uint64_t end) {
  if (end <= start) return;
  Insert(start - start % granule_, RoundUp(end, granule_));
  if (ranges_.size() > limit_) Coarsen();
}

void WrittenRanges::Insert(std::uint64_t start, std::uint64_t end) {
  auto next = ranges_.upper_bound(start);
  if (next != ranges_.begin()) {
    auto before = std::prev(next);
    if (before->second >= start) {
      start = before->first;
      end = std::max(end, before->second);
      ranges_.erase(before);
    }
  }
  while (next != ranges_.end() && next->first <= end) {
    end = std::max(end, next->second);
    next = ranges_.erase(next);
  }
  ranges_.emplace(start, end);
}

void WrittenRanges::Coarsen() {
  while (ranges_.size() > limit_ / 2) {
    granule_ = granule_ < kFirstGranule ? kFirstGranule : granule_ * 2;
    std::map<std::uint64_t, std::uint64_t> old;
    old.swap(ranges_);
    for (const auto& [start, end] : old) Insert(start - start % granule_, RoundUp(end, granule_));
  }
}

std::vector<WrittenRanges::Range> WrittenRanges::Take() {
  std::vector<Range> out(ranges_.begin(), ranges_.end());
  ranges_.clear();
  granule_ = 1;
  return out;
}

std::vector<WrittenRanges::Range> MergeRanges(std::vector<WrittenRanges::Range> ranges) {
  std::sort(ranges.begin(), ranges.end());
  std::vector<WrittenRanges::Range> out;
  for (const auto& range : ranges) {
    if (range.second <= range.first) continue;
    if (!out.empty() && range.first <= out.back().second)
      out.back().second = std::max(out.back().second, range.second);
    else
      out.push_back(range);
  }
  return out;
}

}  // namespace Host::detail
