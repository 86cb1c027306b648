// The collectors of BAT entries and of changed BAT bytes: they turn entries
// into the disk areas they hold or have emptied, or into data block
// records, and bytes of the file into the entries they touch.
// Module-internal; the disk file chains them for its change queries.
//
// Every Collect answers true to go on. Bitmap entries, and payload states
// that hold nothing for the question asked (4 and 5 among them), are passed
// over with true: only code that picks a reader or writer by the state
// refuses an unknown one.
#pragma once

#include <memory>
#include <vector>

#include "vhd/array.h"
#include "vhd/collector.h"
#include "vhd/data_block_info.h"
#include "vhdx/file/area.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/bat/bat_entry_array.h"
#include "vhdx/bat/bat_traits.h"

namespace Vhdx {

// A payload entry's block, through its enumerator, into the area collector.
class BatEntryToDiskAreaCollector : public BatEntryCollector {
 public:
  BatEntryToDiskAreaCollector(std::shared_ptr<const BatIndexTraits> batTraits,
                              std::shared_ptr<Vhd::DiskAreaEnumeratorArray> enumerators,
                              std::shared_ptr<Vhd::DiskAreaCollector> areaCollector)
      : batTraits_(std::move(batTraits)),
        enumerators_(std::move(enumerators)),
        areaCollector_(std::move(areaCollector)) {}

  bool Collect(std::uint64_t index, const BatEntry& entry) override;

 private:
  std::shared_ptr<const BatIndexTraits> batTraits_;
  std::shared_ptr<Vhd::DiskAreaEnumeratorArray> enumerators_;
  std::shared_ptr<Vhd::DiskAreaCollector> areaCollector_;
};

// Blocks that read as something of their own: those whose whole block
// counts (present, and the states that read as zeros, which hide a
// parent's data) to the first collector, partially present ones to the
// bitmap-driven second.
class DispatchingBatEntryCollector : public BatEntryCollector {
 public:
  DispatchingBatEntryCollector(std::shared_ptr<const BatIndexTraits> batTraits,
                               std::shared_ptr<BatEntryCollector> presentCollector,
                               std::shared_ptr<BatEntryCollector> partialCollector)
      : batTraits_(std::move(batTraits)),
        presentCollector_(std::move(presentCollector)),
        partialCollector_(std::move(partialCollector)) {}

  bool Collect(std::uint64_t index, const BatEntry& entry) override;

 private:
  std::shared_ptr<const BatIndexTraits> batTraits_;
  std::shared_ptr<BatEntryCollector> presentCollector_;
  std::shared_ptr<BatEntryCollector> partialCollector_;
};

// The whole block of an entry that holds no payload (states 0 to 3): a
// block that a change of the BAT alone has emptied, with no payload write
// to show for it.
class EmptyBatEntryToDiskAreaCollector : public BatEntryCollector {
 public:
  EmptyBatEntryToDiskAreaCollector(std::shared_ptr<const BatIndexTraits> batTraits, std::uint32_t sectorsPerBlock,
                                   std::shared_ptr<Vhd::DiskAreaCollector> areaCollector);

  bool Collect(std::uint64_t index, const BatEntry& entry) override;

 private:
  std::shared_ptr<const BatIndexTraits> batTraits_;
  BatEntryToDiskAreaCollector wholeBlocks_;
};

// A data block record for each block with payload (states 6 and 7).
class PayloadBatEntryToBlockInfoCollector : public BatEntryCollector {
 public:
  PayloadBatEntryToBlockInfoCollector(std::shared_ptr<const BatIndexTraits> batTraits, std::uint32_t sectorsPerBlock,
                                      std::shared_ptr<Vhd::Collector<Vhd::DataBlockInfo>> blockInfoCollector)
      : batTraits_(std::move(batTraits)),
        sectorsPerBlock_(sectorsPerBlock),
        blockInfoCollector_(std::move(blockInfoCollector)) {}

  bool Collect(std::uint64_t index, const BatEntry& entry) override;

 private:
  std::shared_ptr<const BatIndexTraits> batTraits_;
  std::uint64_t sectorsPerBlock_;
  std::shared_ptr<Vhd::Collector<Vhd::DataBlockInfo>> blockInfoCollector_;
};

// Bytes of the BAT region, to the entries they touch, each read and sent on.
class BatRegionAreaCollector : public Vhd::RegionAreaCollector {
 public:
  BatRegionAreaCollector(std::shared_ptr<BatEntryEnumerator> entries,
                         std::shared_ptr<const BatRegionAreaToIndexMap> areaToIndex,
                         std::shared_ptr<BatEntryCollector> entryCollector)
      : entries_(std::move(entries)), areaToIndex_(std::move(areaToIndex)), entryCollector_(std::move(entryCollector)) {}

  bool Collect(const Area& area) override {
    const IndexRange range = areaToIndex_->Map(area);
    return entries_->Enumerate(range.Offset, range.End(), *entryCollector_);
  }

 private:
  std::shared_ptr<BatEntryEnumerator> entries_;
  std::shared_ptr<const BatRegionAreaToIndexMap> areaToIndex_;
  std::shared_ptr<BatEntryCollector> entryCollector_;
};

// A changed area of the file, cut to one region and made relative to its
// start; areas outside the region go nowhere.
class RegionToRegionAreaCollector : public Vhd::Collector<Vhd::FileRegion> {
 public:
  RegionToRegionAreaCollector(const Area& regionLocation, std::shared_ptr<Vhd::RegionAreaCollector> areaCollector)
      : regionLocation_(regionLocation), areaCollector_(std::move(areaCollector)) {}

  bool Collect(const Vhd::FileRegion& area) override;

 private:
  Area regionLocation_;
  std::shared_ptr<Vhd::RegionAreaCollector> areaCollector_;
};

// Each changed area to every member in order, until one says stop.
class RegionCollectorComposite : public Vhd::Collector<Vhd::FileRegion> {
 public:
  void Add(std::shared_ptr<Vhd::Collector<Vhd::FileRegion>> collector) { members_.push_back(std::move(collector)); }

  bool Collect(const Vhd::FileRegion& area) override {
    for (const auto& member : members_)
      if (!member->Collect(area)) return false;
    return true;
  }

 private:
  std::vector<std::shared_ptr<Vhd::Collector<Vhd::FileRegion>>> members_;
};

}  // namespace Vhdx
