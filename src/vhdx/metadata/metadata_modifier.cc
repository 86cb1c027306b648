#include "vhdx/metadata/metadata_modifier.h"

#include <algorithm>

#include "common/site.h"
#include "vhdx/metadata/aligning_space_manager.h"
#include "vhdx/format/errors.h"
#include "vhdx/metadata/metadata_table.h"

namespace Vhdx {

Area MetadataModifierImpl::OccupyFreeSpace(SpaceManager& space, std::uint32_t size) {
  Area found = space.Allocate(size);
  if (found.Size != 0) return found;
  const std::uint64_t wanted = std::uint64_t{region_->GetLocation().Size} + size;
  if (wanted > UINT32_MAX) throw Common::MessageError(VR_SITE, kNoFreeSpace);
  region_->Expand(static_cast<std::uint32_t>(wanted));
  space.SetBound(region_->GetLocation().Size);
  found = space.Allocate(size);
  if (found.Size == 0) throw Common::MessageError(VR_SITE, kNoFreeSpace);
  return found;
}

void MetadataModifierImpl::Set(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                               std::uint32_t size) {
  MetadataTable table = MetadataTable::Read(*region_);
  AligningSpaceManager space(region_->GetLocation().Size, 0, 1, 1);
  space.Occupy({0, Format::kMetadataTableAreaSize});
  for (const MetadataTableEntry& entry : table.Entries) {
    // The same refusal as a read's, before the space map reports it as a
    // fault of its own.
    MetadataTable::CheckItemBound(entry, region_->GetLocation().Size);
    // An item may end one byte behind the region; that byte is not the
    // region's to give away, so only the part inside is occupied.
    space.Occupy({entry.Offset, std::min(entry.Length, region_->GetLocation().Size - entry.Offset)});
  }

  const auto index = table.Find(descriptor);
  if (!index && table.Entries.size() >= Format::kMaxMetadataEntries)
    throw Common::MessageError(VR_SITE, kRegionBounds);
  // An empty item needs no room, and the space manager has none to give for
  // it: it is stored at offset 0, which no data can have.
  Area place{};
  if (size != 0) {
    // An item wholly behind the region has no room inside it to grow in.
    if (index && table.Entries[*index].Length != 0 && table.Entries[*index].Offset < region_->GetLocation().Size)
      place = space.Expand({table.Entries[*index].Offset, size});
    if (place.Size == 0) place = OccupyFreeSpace(space, size);
  }
  const MetadataTableEntry updated{descriptor.Id, static_cast<std::uint32_t>(place.Offset), size,
                                   descriptor.Flags, 0};
  if (index)
    table.Entries[*index] = updated;
  else
    table.Entries.push_back(updated);

  if (size != 0) region_->Write(place, data);
  table.Write(*region_);
}

void MetadataModifierImpl::Remove(const MetadataDescriptor& descriptor) {
  MetadataTable table = MetadataTable::Read(*region_);
  const auto index = table.Find(descriptor);
  if (!index) return;
  table.Entries.erase(table.Entries.begin() + static_cast<std::ptrdiff_t>(*index));
  table.Write(*region_);
}

}  // namespace Vhdx
