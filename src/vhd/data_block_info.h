// Vhd::DataBlockInfo and the data block map: the payload blocks by their
// place in the file, so that changed bytes of the file can be turned into
// sectors of the virtual disk. Module-internal; filled in one pass over
// the BAT, then asked once per changed file region.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "vhd/collector.h"
#include "vhd/interval.h"

namespace Vhd {

struct DataBlockInfo {
  std::uint64_t FileOffset = 0;  // bytes
  std::uint64_t FirstSector = 0;
  bool FullyPresent = false;  // BAT state 6 rather than 7

  friend bool operator==(const DataBlockInfo&, const DataBlockInfo&) = default;
};

class DataBlockInfoMap {
 public:
  virtual ~DataBlockInfoMap() = default;
  // The blocks that share a byte with `region`, in ascending file order;
  // false when the collector said stop.
  virtual bool Enumerate(const FileRegion& region, Collector<DataBlockInfo>& collector) const = 0;
};

class CollectingDataBlockInfoMap : public DataBlockInfoMap, public Collector<DataBlockInfo> {};

// Keyed by the block's bytes in the file, where keys that overlap are
// equivalent: a lookup of a new block finds any block it would share bytes
// with, which a sound BAT never has.
class RegionIndexedCollectingDataBlockInfoMap : public CollectingDataBlockInfoMap {
 public:
  explicit RegionIndexedCollectingDataBlockInfoMap(std::uint32_t blockSize)
      : blockSize_(blockSize), blocks_(&Precedes) {}

  // Raises kOverlappingBlock (0x3C0040) naming the new block's offset when
  // it shares bytes with a stored one; the map then stays as it was.
  bool Collect(const DataBlockInfo& info) override;
  bool Enumerate(const FileRegion& region, Collector<DataBlockInfo>& collector) const override;

 private:
  struct Placement {
    std::uint64_t FirstSector;
    bool FullyPresent;
  };
  using Order = bool (*)(const FileRegion&, const FileRegion&);

  static bool Precedes(const FileRegion& a, const FileRegion& b) { return a.End() <= b.Offset; }

  std::uint32_t blockSize_;
  std::map<FileRegion, Placement, Order> blocks_;
};

// Turns the bytes of one block that lie in `region` into the sectors they
// touch; a partly touched sector counts whole at both ends.
class TranslatingDataBlockInfoCollector : public Collector<DataBlockInfo> {
 public:
  TranslatingDataBlockInfoCollector(const FileRegion& region, std::uint32_t blockSize,
                                    std::uint32_t sectorSize, Collector<DiskArea>& target)
      : region_(region), blockSize_(blockSize), sectorSize_(sectorSize), target_(&target) {}

  bool Collect(const DataBlockInfo& info) override;

 private:
  FileRegion region_;
  std::uint32_t blockSize_;
  std::uint32_t sectorSize_;
  Collector<DiskArea>* target_;
};

// From a changed region of the file to the disk sectors of the payload
// blocks it touches.
class DataBlocksRegionCollector : public Collector<FileRegion> {
 public:
  DataBlocksRegionCollector(std::shared_ptr<const DataBlockInfoMap> map, std::uint32_t blockSize,
                            std::uint32_t sectorSize, std::shared_ptr<Collector<DiskArea>> target)
      : map_(std::move(map)), blockSize_(blockSize), sectorSize_(sectorSize), target_(std::move(target)) {}

  bool Collect(const FileRegion& region) override;

 private:
  std::shared_ptr<const DataBlockInfoMap> map_;
  std::uint32_t blockSize_;
  std::uint32_t sectorSize_;
  std::shared_ptr<Collector<DiskArea>> target_;
};

}  // namespace Vhd
