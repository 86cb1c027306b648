// The bitmap stores: a differencing file's sector bitmap of one chunk for
// the duration of a write, loaded or created on first use and written back
// in the chunk's Commit, after the payload. Module-internal; made by the
// differencing chunk writer.
#pragma once

#include <memory>

#include "vhd/bitmap.h"
#include "vhdx/bat_entry.h"
#include "vhdx/file.h"
#include "vhdx/observer.h"

namespace Vhdx {

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
};

// The chunk has a bitmap block: its place never changes, so its entry
// doesn't either; a change of any bit through a view makes it dirty.
class ExistingBitmapStore : public BitmapStore,
                            public Observer,
                            public std::enable_shared_from_this<ExistingBitmapStore> {
 public:
  // The file must outlive the store. Must be held by a shared pointer.
  ExistingBitmapStore(File& file, BatEntry entry) : file_(file), entry_(entry) {}

  std::shared_ptr<Vhd::Bitmap> GetBitmap() override;
  void Flush() override;
  bool IsBatEntryChanged() const override { return false; }
  void Notify() override { dirty_ = true; }

 private:
  File& file_;
  BatEntry entry_;
  bool dirty_ = false;
  std::shared_ptr<Vhd::DataOwningBitmap> loaded_;
};

// The chunk has none yet: one is made on first use and appended at the
// 1 MiB-aligned end of the file when flushed, behind the payload.
class NewBitmapStore : public BitmapStore {
 public:
  // The file and the entry (inside a loaded BatArea) must outlive the store.
  NewBitmapStore(File& file, BatEntry& entry) : file_(file), entry_(entry) {}

  std::shared_ptr<Vhd::Bitmap> GetBitmap() override;
  void Flush() override;
  bool IsBatEntryChanged() const override { return changed_; }

 private:
  File& file_;
  BatEntry& entry_;
  std::shared_ptr<Vhd::DataOwningBitmap> bitmap_;
  bool changed_ = false;
};

}  // namespace Vhdx
