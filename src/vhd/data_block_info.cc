#include "vhd/data_block_info.h"

#include <string>

#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhd/errors.h"
#include "vhd/saturation_preserver.h"

namespace Vhd {

bool RegionIndexedCollectingDataBlockInfoMap::Collect(const DataBlockInfo& info) {
  const FileRegion key{info.FileOffset, blockSize_};
  const auto [where, inserted] = blocks_.try_emplace(key, Placement{info.FirstSector, info.FullyPresent});
  if (!inserted)
    throw Common::MessageError(VR_SITE, kOverlappingBlock, {Common::FromUtf8(std::to_string(info.FileOffset))});
  return true;
}

bool RegionIndexedCollectingDataBlockInfoMap::Enumerate(const FileRegion& region,
                                                        Collector<DataBlockInfo>& collector) const {
  // An empty region is equivalent to nothing but would sort like a point.
  if (region.Size == 0) return true;
  const auto [first, last] = blocks_.equal_range(region);
  for (auto it = first; it != last; ++it)
    if (!collector.Collect({it->first.Offset, it->second.FirstSector, it->second.FullyPresent})) return false;
  return true;
}

bool TranslatingDataBlockInfoCollector::Collect(const DataBlockInfo& info) {
  const FileRegion touched = Clamp(FileRegion{info.FileOffset, blockSize_}, region_);
  if (touched.Size == 0) return true;
  const std::uint64_t offset = touched.Offset - info.FileOffset;
  const std::uint64_t first = offset / sectorSize_;
  const std::uint64_t past = (offset + touched.Size - 1) / sectorSize_ + 1;
  return target_->Collect({info.FirstSector + first, past - first});
}

bool DataBlocksRegionCollector::Collect(const FileRegion& region) {
  TranslatingDataBlockInfoCollector translator(region, blockSize_, sectorSize_, *target_);
  // The enumeration's own answer is dropped: only a stop of the target
  // must reach the caller.
  SaturationPreserver<DataBlockInfo> preserver(translator);
  map_->Enumerate(region, preserver);
  return !preserver.IsSaturated();
}

}  // namespace Vhd
