#include "vhdx/log/non_persistent_file.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

#include "common/file_errors.h"
#include "common/site.h"

namespace Vhdx {

namespace {

// Zeros are kept in pieces of this size, not one range: a later write merges
// with the pieces it meets only, so the zeros it turns into real bytes stay
// near its size.
constexpr std::uint64_t kZeroPiece = 4096;

// A place whose end wraps around cannot be kept apart from the others; it
// is refused as the file below refuses a place it cannot name.
void RefuseWrap(std::uint64_t offset, std::uint64_t size) {
  if (size > UINT64_MAX - offset) throw Common::FileErrorOf(VR_SITE, FileError::Seek);
}

}  // namespace

NonPersistentFile::RangeMap::iterator NonPersistentFile::FirstEndingAfter(std::uint64_t offset) {
  // Keys are sorted and apart, so their ends are sorted too: only the one
  // key before the first at or after `offset` can still reach past it.
  auto it = ranges_.lower_bound(Vhd::FileRegion{offset, 0});
  if (it != ranges_.begin()) {
    const auto before = std::prev(it);
    if (before->first.End() > offset) return before;
  }
  return it;
}

void NonPersistentFile::Insert(std::shared_ptr<DataRange> range) {
  const std::uint64_t end = range->GetOffset() + range->GetSize();
  const auto first = FirstEndingAfter(range->GetOffset());
  auto last = first;
  // The map changes only after every merge went through, so a failing one
  // leaves the overlay as it was.
  for (; last != ranges_.end() && last->first.Offset < end; ++last) range = last->second->Merge(*range);
  const auto hint = ranges_.erase(first, last);
  const Vhd::FileRegion key{range->GetOffset(), range->GetSize()};
  ranges_.emplace_hint(hint, key, std::move(range));
}

void NonPersistentFile::Read(std::uint64_t offset, std::size_t size, void* buffer) {
  RefuseWrap(offset, size);
  const std::uint64_t end = offset + size;
  auto* out = static_cast<std::uint8_t*>(buffer);
  auto it = FirstEndingAfter(offset);
  if (it == ranges_.end() || it->first.Offset >= end) {
    file_.Read(offset, size, buffer);
    return;
  }
  std::uint64_t at = offset;
  for (; it != ranges_.end() && it->first.Offset < end; ++it) {
    if (it->first.Offset > at) {
      file_.Read(at, static_cast<std::size_t>(it->first.Offset - at), out + (at - offset));
      at = it->first.Offset;
    }
    const std::uint64_t stop = std::min(end, it->first.End());
    it->second->Read(at, static_cast<std::size_t>(stop - at), out + (at - offset));
    at = stop;
  }
  // Nothing left means no call: the file below may refuse even an empty
  // read at a place beyond its end that only the overlay has.
  if (at < end) file_.Read(at, static_cast<std::size_t>(end - at), out + (at - offset));
}

std::uint64_t NonPersistentFile::GetSize() {
  const std::uint64_t below = file_.GetSize();
  return ranges_.empty() ? below : std::max(below, std::prev(ranges_.end())->first.End());
}

void NonPersistentFile::Write(std::uint64_t offset, std::size_t size, const void* buffer) {
  RefuseWrap(offset, size);
  // An empty range would share its key with the range starting there.
  if (size == 0) return;
  const auto* bytes = static_cast<const std::uint8_t*>(buffer);
  Insert(std::make_shared<InMemoryDataRange>(offset, std::vector<std::uint8_t>(bytes, bytes + size)));
}

void NonPersistentFile::InsertZeros(std::uint64_t offset, std::uint64_t end) {
  for (std::uint64_t at = offset; at < end;) {
    const std::uint64_t piece = std::min(end - at, kZeroPiece);
    Insert(std::make_shared<ZeroDataRange>(at, piece));
    at += piece;
  }
}

void NonPersistentFile::WriteZero(std::uint64_t offset, std::uint64_t size) {
  RefuseWrap(offset, size);
  InsertZeros(offset, offset + size);
}

void NonPersistentFile::Expand(std::uint64_t size) { InsertZeros(GetSize(), size); }

}  // namespace Vhdx
