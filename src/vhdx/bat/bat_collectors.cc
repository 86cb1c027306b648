#include "vhdx/bat/bat_collectors.h"

#include "vhd/block_bitmap_arrays.h"

namespace Vhdx {

bool BatEntryToDiskAreaCollector::Collect(std::uint64_t index, const BatEntry&) {
  if (batTraits_->IsBitmapEntry(index)) return true;
  const auto block = static_cast<std::uint32_t>(batTraits_->GetPayloadIndex(index));
  return enumerators_->Get(block)->Enumerate(*areaCollector_);
}

bool DispatchingBatEntryCollector::Collect(std::uint64_t index, const BatEntry& entry) {
  if (batTraits_->IsBitmapEntry(index)) return true;
  switch (entry.GetState()) {
    case PAYLOAD_BLOCK_FULLY_PRESENT:
    case PAYLOAD_BLOCK_UNDEFINED:
    case PAYLOAD_BLOCK_ZERO:
    case PAYLOAD_BLOCK_UNMAPPED:
      return presentCollector_->Collect(index, entry);
    case PAYLOAD_BLOCK_PARTIALLY_PRESENT:
      return partialCollector_->Collect(index, entry);
    default:
      return true;
  }
}

EmptyBatEntryToDiskAreaCollector::EmptyBatEntryToDiskAreaCollector(
    std::shared_ptr<const BatIndexTraits> batTraits, std::uint32_t sectorsPerBlock,
    std::shared_ptr<Vhd::DiskAreaCollector> areaCollector)
    : batTraits_(batTraits),
      wholeBlocks_(batTraits,
                   std::make_shared<BlockDiskAreaEnumeratorArray>(
                       std::make_shared<BlockSizeAwareDataBlockTraits>(sectorsPerBlock)),
                   std::move(areaCollector)) {}

bool EmptyBatEntryToDiskAreaCollector::Collect(std::uint64_t index, const BatEntry& entry) {
  if (batTraits_->IsBitmapEntry(index) || entry.GetState() > PAYLOAD_BLOCK_UNMAPPED) return true;
  return wholeBlocks_.Collect(index, entry);
}

bool PayloadBatEntryToBlockInfoCollector::Collect(std::uint64_t index, const BatEntry& entry) {
  if (batTraits_->IsBitmapEntry(index)) return true;
  const std::uint32_t state = entry.GetState();
  if (state != PAYLOAD_BLOCK_FULLY_PRESENT && state != PAYLOAD_BLOCK_PARTIALLY_PRESENT) return true;
  return blockInfoCollector_->Collect({entry.GetFileOffset(), batTraits_->GetPayloadIndex(index) * sectorsPerBlock_,
                                       state == PAYLOAD_BLOCK_FULLY_PRESENT});
}

bool RegionToRegionAreaCollector::Collect(const Vhd::FileRegion& area) {
  const Vhd::FileRegion region{regionLocation_.Offset, regionLocation_.Size};
  const Vhd::FileRegion inside = Vhd::Clamp(area, region);
  if (inside.Size == 0) return true;
  // The region is at most 32 bits long, so is what lies in it.
  const Area relative{inside.Offset - region.Offset, static_cast<std::uint32_t>(inside.Size)};
  if (relative.Size == 0) return true;
  return areaCollector_->Collect(relative);
}

}  // namespace Vhdx
