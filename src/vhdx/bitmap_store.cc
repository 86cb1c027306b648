#include "vhdx/bitmap_store.h"

#include "vhdx/bitmap_loader.h"
#include "vhdx/block_writer.h"
#include "vhdx/change_tracking_bitmap.h"
#include "vhdx/format.h"

namespace Vhdx {

std::shared_ptr<Vhd::Bitmap> ExistingBitmapStore::GetBitmap() {
  if (!loaded_) loaded_ = BitmapLoader(file_).Load(entry_);
  auto view = std::make_shared<ChangeTrackingBitmap>(loaded_);
  view->Add(shared_from_this());
  return view;
}

void ExistingBitmapStore::Flush() {
  if (loaded_ && dirty_) file_.Write(entry_.GetFileOffset(), loaded_->GetDataSize(), loaded_->GetData());
}

std::shared_ptr<Vhd::Bitmap> NewBitmapStore::GetBitmap() {
  if (!bitmap_) bitmap_ = Vhd::CreateBitmap(kSectorsPerChunk, false);
  return bitmap_;
}

void NewBitmapStore::Flush() {
  if (!bitmap_) return;
  const std::uint64_t base = NextAlignedEnd(file_);
  file_.Write(base, bitmap_->GetDataSize(), bitmap_->GetData());
  entry_.SetFileOffsetMb(base / Format::kMiB);
  entry_.SetState(SB_BLOCK_PRESENT);
  changed_ = true;
}

}  // namespace Vhdx
