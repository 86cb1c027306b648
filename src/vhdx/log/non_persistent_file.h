// Vhdx::NonPersistentFile: a Vhdx::File over a read-only one that keeps
// every write and zeroing in memory, so that a read-only open can replay a
// log without changing the file. Reads see the overlay where it has data and
// the file below elsewhere; nothing ever reaches the file below.
// Module-internal.
#pragma once

#include <map>
#include <memory>

#include "vhd/interval.h"
#include "vhdx/log/data_range.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class NonPersistentFile : public File {
 public:
  struct ByOffset {
    bool operator()(const Vhd::FileRegion& a, const Vhd::FileRegion& b) const { return a.Offset < b.Offset; }
  };
  // Keys never overlap; touching ones stay apart.
  using RangeMap = std::map<Vhd::FileRegion, std::shared_ptr<DataRange>, ByOffset>;

  // The file below must outlive the overlay.
  explicit NonPersistentFile(File& file) : file_(file) {}

  void Read(std::uint64_t offset, std::size_t size, void* buffer) override;
  std::uint64_t GetSize() override;
  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override;
  void WriteZero(std::uint64_t offset, std::uint64_t size) override;
  // Only grows: a smaller size leaves everything as it is.
  void Expand(std::uint64_t size) override;
  void Flush() override {}

  const RangeMap& Ranges() const { return ranges_; }

 private:
  // The first stored range that ends after `offset`.
  RangeMap::iterator FirstEndingAfter(std::uint64_t offset);
  void Insert(std::shared_ptr<DataRange> range);
  // Zeros over [offset, end), in pieces.
  void InsertZeros(std::uint64_t offset, std::uint64_t end);

  File& file_;
  RangeMap ranges_;
};

}  // namespace Vhdx
