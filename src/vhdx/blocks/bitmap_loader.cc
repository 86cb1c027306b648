#include "vhdx/blocks/bitmap_loader.h"

#include "common/assert.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

std::shared_ptr<Vhd::DataOwningBitmap> BitmapLoader::Load(BatEntry entry) {
  return LoadPart(entry, 0, kSectorsPerChunk);
}

std::shared_ptr<Vhd::DataOwningBitmap> BitmapLoader::LoadPart(BatEntry entry, std::uint64_t first,
                                                              std::uint64_t count) {
  switch (entry.GetState()) {
    case SB_BLOCK_NOT_PRESENT:
      throw Common::MessageError(VR_SITE, kBitmapMissing);
    case SB_BLOCK_PRESENT: {
      VR_ASSERT(first % 8 == 0 && count % 8 == 0 && first + count <= kSectorsPerChunk);
      // Born full: the read overwrites every byte.
      std::shared_ptr<Vhd::DataOwningBitmap> bitmap = Vhd::CreateBitmap(count, true);
      file_.Read(entry.GetFileOffset() + first / 8, bitmap->GetDataSize(), bitmap->GetData());
      return bitmap;
    }
    default:
      throw Common::MessageError(VR_SITE, kUnknownBlockState);
  }
}

}  // namespace Vhdx
