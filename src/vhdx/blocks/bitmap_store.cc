#include "vhdx/blocks/bitmap_store.h"

#include <algorithm>

#include "vhdx/blocks/bitmap_loader.h"
#include "vhdx/blocks/change_tracking_bitmap.h"
#include "vhdx/format/format.h"

namespace Vhdx {

namespace {
constexpr std::uint64_t kPiece = 4096;
}  // namespace

std::shared_ptr<Vhd::Bitmap> ExistingBitmapStore::GetBitmap() {
  if (!loaded_) {
    if (!cache_.Bitmap || !(cache_.Entry == entry_)) {
      cache_.Drop();
      cache_.Bitmap = BitmapLoader(file_).Load(entry_);
      cache_.Entry = entry_;
    }
    loaded_ = cache_.Bitmap;
  }
  auto view = std::make_shared<ChangeTrackingBitmap>(loaded_);
  view->Add(shared_from_this());
  return view;
}

void ExistingBitmapStore::WillChange(std::uint64_t first, std::uint64_t count) {
  if (count == 0) return;
  firstByte_ = std::min(firstByte_, first / 8 / kPiece * kPiece);
  endByte_ = std::max(endByte_, ((first + count + 7) / 8 + kPiece - 1) / kPiece * kPiece);
}

void ExistingBitmapStore::Flush() {
  if (!loaded_ || !dirty_) return;
  const std::uint64_t first = std::min<std::uint64_t>(firstByte_, loaded_->GetDataSize());
  const std::uint64_t end = std::min<std::uint64_t>(endByte_, loaded_->GetDataSize());
  // Bits changed outside what was announced would be lost: write it all.
  if (first >= end) {
    file_.Write(entry_.GetFileOffset(), loaded_->GetDataSize(), loaded_->GetData());
    return;
  }
  file_.Write(entry_.GetFileOffset() + first, end - first, loaded_->GetData() + first);
}

std::shared_ptr<Vhd::Bitmap> NewBitmapStore::GetBitmap() {
  if (!bitmap_) bitmap_ = Vhd::CreateBitmap(kSectorsPerChunk, false);
  return bitmap_;
}

void NewBitmapStore::Flush() {
  if (!bitmap_) return;
  const std::uint64_t base = place_.Take(file_, kSectorBitmapBlockSize);
  file_.Write(base, bitmap_->GetDataSize(), bitmap_->GetData());
  entry_.SetFileOffsetMb(base / Format::kMiB);
  entry_.SetState(SB_BLOCK_PRESENT);
  changed_ = true;
  cache_.Entry = entry_;
  cache_.Bitmap = bitmap_;
}

}  // namespace Vhdx
