#include "vhdx/format/region_table_writer.h"

#include <vector>

#include "common/site.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

void RegionTableWriter::Write(File& file, const RegionList& regions) {
  namespace T = Format::RegionTable;
  namespace E = Format::RegionEntry;
  if (regions.size() > Format::kMaxRegionEntries)
    throw Common::MessageError(VR_SITE, kRegionTableInvalid);
  std::vector<std::uint8_t> image(Format::kRegionTableSize);
  StoreLe32(&image[T::kSignature], Format::kRegionTableSignature);
  StoreLe32(&image[T::kEntryCount], static_cast<std::uint32_t>(regions.size()));
  std::uint8_t* p = &image[T::kFirstEntry];
  for (const RegionTableEntry& entry : regions) {
    StoreGuid(p + E::kGuid, entry.Guid);
    StoreLe64(p + E::kFileOffset, entry.FileOffset);
    StoreLe32(p + E::kLength, entry.Length);
    StoreLe32(p + E::kRequired, entry.Required);
    p += E::kSize;
  }
  StoreLe32(&image[T::kChecksum], Crc32c(image.data(), image.size()));
  for (const std::uint64_t offset : Format::kRegionTableOffsets)
    file.Write(offset, image.size(), image.data());
}

}  // namespace Vhdx
