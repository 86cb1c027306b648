// Reaching BAT entries one at a time: the entry array over the BAT region
// and the enumerator that walks a range of indices into a collector.
// Module-internal; the chains that translate changed BAT bytes and the
// chunk bitmap loading use them, the block reads load whole slices instead.
#pragma once

#include <cstdint>
#include <memory>

#include "vhd/array.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/file/file_region.h"

namespace Vhdx {

// Reads each entry afresh, with no cache: its users touch few entries, and
// the entries may have been rewritten since.
class FileRegionBatEntryArray : public Vhd::Array<BatEntry> {
 public:
  // The region must outlive the array.
  explicit FileRegionBatEntryArray(ReadOnlyFileRegion& region) : region_(region) {}

  // Raises the region's bound error for an index behind the region.
  BatEntry Get(std::uint32_t index) override;

 private:
  ReadOnlyFileRegion& region_;
};

template <typename T>
class IndexedEntryCollector {
 public:
  virtual ~IndexedEntryCollector() = default;
  // True to go on.
  virtual bool Collect(std::uint64_t index, const T& entry) = 0;
};

template <typename T>
class IndexedEntryEnumerator {
 public:
  virtual ~IndexedEntryEnumerator() = default;
  // Walks [begin, end); true when it got to the end, false when the
  // collector said stop.
  virtual bool Enumerate(std::uint64_t begin, std::uint64_t end, IndexedEntryCollector<T>& collector) = 0;
};

template <typename T>
class ArrayEntryEnumerator : public IndexedEntryEnumerator<T> {
 public:
  explicit ArrayEntryEnumerator(std::shared_ptr<Vhd::Array<T>> array) : array_(std::move(array)) {}

  bool Enumerate(std::uint64_t begin, std::uint64_t end, IndexedEntryCollector<T>& collector) override {
    for (std::uint64_t index = begin; index < end; ++index)
      if (!collector.Collect(index, array_->Get(static_cast<std::uint32_t>(index)))) return false;
    return true;
  }

 private:
  std::shared_ptr<Vhd::Array<T>> array_;
};

using BatEntryCollector = IndexedEntryCollector<BatEntry>;
using BatEntryEnumerator = IndexedEntryEnumerator<BatEntry>;

}  // namespace Vhdx
