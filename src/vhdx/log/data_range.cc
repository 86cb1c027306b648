#include "vhdx/log/data_range.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

namespace {

std::u16string Decimal(std::uint64_t value) { return Common::FromUtf8(std::to_string(value)); }

std::uint64_t EndOf(const DataRange& range) { return range.GetOffset() + range.GetSize(); }

// Both the older range's bytes around `newer` and `newer` itself, in one
// buffer; zero data becomes real zeros here.
std::shared_ptr<DataRange> Combine(const DataRange& newer, const DataRange& older) {
  const std::uint64_t begin = std::min(newer.GetOffset(), older.GetOffset());
  const std::uint64_t end = std::max(EndOf(newer), EndOf(older));
  std::vector<std::uint8_t> data(static_cast<std::size_t>(end - begin));
  if (older.GetOffset() < newer.GetOffset())
    older.Read(older.GetOffset(), static_cast<std::size_t>(newer.GetOffset() - older.GetOffset()), data.data());
  newer.ReadUnchecked(newer.GetOffset(), static_cast<std::size_t>(newer.GetSize()),
                      data.data() + (newer.GetOffset() - begin));
  if (EndOf(older) > EndOf(newer))
    older.Read(EndOf(newer), static_cast<std::size_t>(EndOf(older) - EndOf(newer)),
               data.data() + (EndOf(newer) - begin));
  return std::make_shared<InMemoryDataRange>(begin, std::move(data));
}

}  // namespace

void CheckInclusion(const DataRange& range, std::uint64_t offset, std::uint64_t size) {
  // Subtractions instead of sums: no bound may wrap around.
  if (offset < range.GetOffset() || offset - range.GetOffset() > range.GetSize() ||
      size > range.GetSize() - (offset - range.GetOffset()))
    throw Common::MessageError(VR_SITE, kReadBeyondRange,
                               {Decimal(range.GetOffset()), Decimal(range.GetSize()), Decimal(offset),
                                Decimal(size)});
}

void CheckIntersecrion(const DataRange& first, const DataRange& second) {
  // Touching ranges are refused too: merging them would join what the
  // overlay keeps apart.
  if (!(EndOf(first) > second.GetOffset() && EndOf(second) > first.GetOffset()))
    throw Common::MessageError(VR_SITE, kMergeDisjointRanges,
                               {Decimal(first.GetOffset()), Decimal(first.GetSize()),
                                Decimal(second.GetOffset()), Decimal(second.GetSize())});
}

std::shared_ptr<DataRange> ZeroDataRange::MergeWithInMemory(const DataRange& older) const {
  if (older.GetOffset() >= GetOffset() && EndOf(older) <= EndOf(*this))
    return std::make_shared<ZeroDataRange>(GetOffset(), GetSize());
  return CreateMerged(older);
}

std::shared_ptr<DataRange> ZeroDataRange::MergeWithZero(const DataRange& older) const {
  const std::uint64_t begin = std::min(GetOffset(), older.GetOffset());
  return std::make_shared<ZeroDataRange>(begin, std::max(EndOf(*this), EndOf(older)) - begin);
}

void ZeroDataRange::ReadUnchecked(std::uint64_t, std::size_t size, void* buffer) const {
  if (size != 0) std::memset(buffer, 0, size);
}

std::shared_ptr<DataRange> ZeroDataRange::CreateMerged(const DataRange& older) const {
  return Combine(*this, older);
}

std::shared_ptr<DataRange> InMemoryDataRange::MergeWithInMemory(const DataRange& older) const {
  return CreateMerged(older);
}

std::shared_ptr<DataRange> InMemoryDataRange::MergeWithZero(const DataRange& older) const {
  return CreateMerged(older);
}

void InMemoryDataRange::ReadUnchecked(std::uint64_t offset, std::size_t size, void* buffer) const {
  // An empty request may come with no buffer at all.
  if (size != 0) std::memcpy(buffer, data_.data() + (offset - GetOffset()), size);
}

std::shared_ptr<DataRange> InMemoryDataRange::CreateMerged(const DataRange& older) const {
  return Combine(*this, older);
}

}  // namespace Vhdx
