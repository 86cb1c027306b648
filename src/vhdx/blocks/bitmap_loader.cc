#include "vhdx/blocks/bitmap_loader.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

std::shared_ptr<Vhd::DataOwningBitmap> BitmapLoader::Load(BatEntry entry) {
  switch (entry.GetState()) {
    case SB_BLOCK_NOT_PRESENT:
      throw Common::MessageError(VR_SITE, kBitmapMissing);
    case SB_BLOCK_PRESENT: {
      // Born full: the read overwrites every byte.
      std::shared_ptr<Vhd::DataOwningBitmap> bitmap = Vhd::CreateBitmap(kSectorsPerChunk, true);
      file_.Read(entry.GetFileOffset(), bitmap->GetDataSize(), bitmap->GetData());
      return bitmap;
    }
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

}  // namespace Vhdx
