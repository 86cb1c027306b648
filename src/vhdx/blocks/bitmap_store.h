// The bitmap stores: a differencing file's sector bitmap of one chunk for
// the duration of a write, loaded or created on first use and written back
// in the chunk's Commit, after the payload. Module-internal; made by the
// differencing chunk writer.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/file/append_point.h"
#include "vhdx/file/file.h"
#include "vhdx/file/observer.h"

namespace Vhdx {

// The sector bitmap a disk file's writes last used, kept between requests
// so that a run of small writes into one chunk does not read and write the
// whole megabyte each time. Only the open that writes the file changes its
// bitmaps, so the copy stays true; a failed write drops it.
struct BitmapCache {
  BatEntry Entry;  // where the bitmap lies; its state is SB_BLOCK_PRESENT
  std::shared_ptr<Vhd::DataOwningBitmap> Bitmap;

  void Drop() { Bitmap.reset(); }
};

class BitmapStore {
 public:
  BitmapStore() = default;
  BitmapStore(const BitmapStore&) = delete;
  BitmapStore& operator=(const BitmapStore&) = delete;
  virtual ~BitmapStore() = default;

  // The chunk's bitmap of 0x800000 bits.
  virtual std::shared_ptr<Vhd::Bitmap> GetBitmap() = 0;
  virtual void Flush() = 0;
  virtual bool IsBatEntryChanged() const = 0;
  // Bits in [first, first + count) may change through the bitmap: what
  // Flush must write of an existing bitmap.
  virtual void WillChange(std::uint64_t first, std::uint64_t count) = 0;
};

// The chunk has a bitmap block: its place never changes, so its entry
// doesn't either; a change of any bit through a view makes it dirty.
class ExistingBitmapStore : public BitmapStore,
                            public Observer,
                            public std::enable_shared_from_this<ExistingBitmapStore> {
 public:
  // The file and the cache must outlive the store. Must be held by a
  // shared pointer.
  ExistingBitmapStore(File& file, BatEntry entry, BitmapCache& cache) : file_(file), entry_(entry), cache_(cache) {}

  std::shared_ptr<Vhd::Bitmap> GetBitmap() override;
  // Writes the 4096-byte pieces that hold bits announced by WillChange.
  void Flush() override;
  bool IsBatEntryChanged() const override { return false; }
  void WillChange(std::uint64_t first, std::uint64_t count) override;
  void Notify() override { dirty_ = true; }

 private:
  File& file_;
  BatEntry entry_;
  BitmapCache& cache_;
  bool dirty_ = false;
  std::shared_ptr<Vhd::DataOwningBitmap> loaded_;
  // Byte range of the bitmap that may have changed.
  std::uint64_t firstByte_ = UINT64_MAX, endByte_ = 0;
};

// The chunk has none yet: one is made on first use and appended when
// flushed, behind the payload.
class NewBitmapStore : public BitmapStore {
 public:
  // The file, the place, the entry (inside a loaded BatArea) and the cache
  // must outlive the store.
  NewBitmapStore(File& file, AppendPoint& place, BatEntry& entry, BitmapCache& cache)
      : file_(file), place_(place), entry_(entry), cache_(cache) {}

  std::shared_ptr<Vhd::Bitmap> GetBitmap() override;
  void Flush() override;
  bool IsBatEntryChanged() const override { return changed_; }
  void WillChange(std::uint64_t, std::uint64_t) override {}

 private:
  File& file_;
  AppendPoint& place_;
  BatEntry& entry_;
  BitmapCache& cache_;
  std::shared_ptr<Vhd::DataOwningBitmap> bitmap_;
  bool changed_ = false;
};

}  // namespace Vhdx
