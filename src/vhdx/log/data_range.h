// Vhdx::DataRange: a run of bytes at a file offset that a NonPersistentFile
// holds in place of the file's own bytes; either all zero (ZeroDataRange) or
// a private copy (InMemoryDataRange). Overlapping ranges merge into one, the
// newer one winning where they overlap. Module-internal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace Vhdx {

class DataRange {
 public:
  DataRange() = default;
  DataRange(const DataRange&) = delete;
  DataRange& operator=(const DataRange&) = delete;
  virtual ~DataRange() = default;

  virtual std::uint64_t GetOffset() const = 0;
  virtual std::uint64_t GetSize() const = 0;
  // `offset` is a file offset; the request must lie wholly inside the range.
  virtual void Read(std::uint64_t offset, std::size_t size, void* buffer) const = 0;
  // `other` is the newer data and must truly overlap this range; the result
  // covers both and shows `other` where they overlap.
  virtual std::shared_ptr<DataRange> Merge(const DataRange& other) const = 0;
  // The second half of Merge's double dispatch: this range is the newer one.
  virtual std::shared_ptr<DataRange> MergeWithInMemory(const DataRange& older) const = 0;
  virtual std::shared_ptr<DataRange> MergeWithZero(const DataRange& older) const = 0;
  virtual void ReadUnchecked(std::uint64_t offset, std::size_t size, void* buffer) const = 0;
  // Real bytes over the united extent, this range's over `older`'s.
  virtual std::shared_ptr<DataRange> CreateMerged(const DataRange& older) const = 0;
};

// Throw 0x3C003E / 0x3C003D with both extents in the text.
void CheckInclusion(const DataRange& range, std::uint64_t offset, std::uint64_t size);
void CheckIntersecrion(const DataRange& first, const DataRange& second);

// The bounds and the checked entry points, the same for every kind; Derived
// names the half of the double dispatch that fits it in OfferTo.
template <class Derived>
class DataRangeBase : public DataRange {
 public:
  std::uint64_t GetOffset() const override { return offset_; }
  std::uint64_t GetSize() const override { return size_; }
  void Read(std::uint64_t offset, std::size_t size, void* buffer) const override {
    CheckInclusion(*this, offset, size);
    ReadUnchecked(offset, size, buffer);
  }
  std::shared_ptr<DataRange> Merge(const DataRange& other) const override {
    CheckIntersecrion(*this, other);
    return static_cast<const Derived&>(*this).OfferTo(other);
  }

 protected:
  DataRangeBase(std::uint64_t offset, std::uint64_t size) : offset_(offset), size_(size) {}

 private:
  std::uint64_t offset_;
  std::uint64_t size_;
};

class ZeroDataRange : public DataRangeBase<ZeroDataRange> {
 public:
  ZeroDataRange(std::uint64_t offset, std::uint64_t size) : DataRangeBase(offset, size) {}

  std::shared_ptr<DataRange> MergeWithInMemory(const DataRange& older) const override;
  std::shared_ptr<DataRange> MergeWithZero(const DataRange& older) const override;
  void ReadUnchecked(std::uint64_t offset, std::size_t size, void* buffer) const override;
  std::shared_ptr<DataRange> CreateMerged(const DataRange& older) const override;

  std::shared_ptr<DataRange> OfferTo(const DataRange& newer) const { return newer.MergeWithZero(*this); }
};

class InMemoryDataRange : public DataRangeBase<InMemoryDataRange> {
 public:
  InMemoryDataRange(std::uint64_t offset, std::vector<std::uint8_t> data)
      : DataRangeBase(offset, data.size()), data_(std::move(data)) {}

  std::shared_ptr<DataRange> MergeWithInMemory(const DataRange& older) const override;
  std::shared_ptr<DataRange> MergeWithZero(const DataRange& older) const override;
  void ReadUnchecked(std::uint64_t offset, std::size_t size, void* buffer) const override;
  std::shared_ptr<DataRange> CreateMerged(const DataRange& older) const override;

  std::shared_ptr<DataRange> OfferTo(const DataRange& newer) const { return newer.MergeWithInMemory(*this); }

 private:
  std::vector<std::uint8_t> data_;
};

}  // namespace Vhdx
