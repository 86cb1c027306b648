#include "vhdx/metadata/metadata_table.h"

#include <cstring>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/location_aware.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

namespace T = Format::MetadataTable;
namespace E = Format::MetadataEntry;

MetadataTable MetadataTable::Read(ReadOnlyFileRegion& region) {
  MetadataTable table;
  // The region check would let the header, and below the table, end one byte
  // past the region; entries beyond the table area would be item data read
  // as entries.
  if (region.GetLocation().Size < T::kHeaderSize)
    throw Common::MessageError(VR_SITE, kRegionBounds);
  region.Read({0, T::kHeaderSize}, table.Header.data());
  if (std::memcmp(&table.Header[T::kSignature], Format::kMetadataSignature,
                  sizeof Format::kMetadataSignature) != 0)
    throw Common::MessageError(VR_SITE, kMetadataSignature);
  const std::uint32_t count = LoadLe16(&table.Header[T::kEntryCount]);
  const std::uint64_t end = T::kFirstEntry + std::uint64_t{E::kSize} * count;
  if (count > Format::kMaxMetadataEntries || end > region.GetLocation().Size)
    throw Common::MessageError(VR_SITE, kRegionBounds);
  std::vector<std::uint8_t> image(E::kSize * count);
  if (count != 0)
    region.Read({T::kFirstEntry, static_cast<std::uint32_t>(image.size())}, image.data());
  table.Entries.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint8_t* p = &image[i * E::kSize];
    table.Entries.push_back({LoadGuid(p + E::kItemId), LoadLe32(p + E::kOffset),
                             LoadLe32(p + E::kLength), LoadLe32(p + E::kFlags),
                             LoadLe32(p + E::kReserved)});
  }
  return table;
}

void MetadataTable::CheckItemBound(const MetadataTableEntry& entry, std::uint32_t regionSize) {
  // The region's own check, so that an item is accepted exactly when its
  // read is; either way a buffer sized from the length stays within the
  // region plus one byte.
  LocationAware(Area{0, regionSize}).CheckBound({entry.Offset, entry.Length});
}

std::optional<std::size_t> MetadataTable::Find(const MetadataDescriptor& descriptor) const {
  for (std::size_t i = 0; i < Entries.size(); ++i)
    if (NamesSameItem(Entries[i].Descriptor(), descriptor)) return i;
  return std::nullopt;
}

void MetadataTable::Write(WritableFileRegion& region) const {
  if (Entries.size() > Format::kMaxMetadataEntries)
    throw Common::MessageError(VR_SITE, kRegionBounds);
  std::array<std::uint8_t, T::kHeaderSize> header = Header;
  StoreLe16(&header[T::kEntryCount], static_cast<std::uint16_t>(Entries.size()));
  std::vector<std::uint8_t> image(E::kSize * Entries.size());
  for (std::size_t i = 0; i < Entries.size(); ++i) {
    std::uint8_t* p = &image[i * E::kSize];
    const MetadataTableEntry& entry = Entries[i];
    StoreGuid(p + E::kItemId, entry.ItemId);
    StoreLe32(p + E::kOffset, entry.Offset);
    StoreLe32(p + E::kLength, entry.Length);
    StoreLe32(p + E::kFlags, entry.Flags);
    StoreLe32(p + E::kReserved, entry.Reserved);
  }
  region.Write({0, T::kHeaderSize}, header.data());
  if (!image.empty())
    region.Write({T::kFirstEntry, static_cast<std::uint32_t>(image.size())}, image.data());
}

}  // namespace Vhdx
