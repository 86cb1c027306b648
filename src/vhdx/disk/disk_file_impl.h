// Vhdx::DiskFileImpl: the one real disk file, over a FileAssembly. Its
// constructor reads header, region table and metadata in a fixed order and
// keeps what it needs; reads go through the BAT, writes append blocks and
// update the BAT last. Module-internal; made by the open paths.
#pragma once

#include <memory>

#include "vhd/data_block_info.h"
#include "vhdx/bat/bat_area.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/blocks/bitmap_store.h"
#include "vhdx/disk/disk_file.h"
#include "vhdx/disk/file_assembly.h"
#include "vhdx/file/append_point.h"
#include "vhdx/bat/reserved_areas.h"
#include "vhdx/format/header_info.h"
#include "vhdx/format/region_table.h"

namespace Vhdx {

class ChunkWriter;
class MetadataModifier;

class DiskFileImpl : public DiskFile {
 public:
  // `consumer` sees every metadata item it accepts, during construction only.
  DiskFileImpl(std::unique_ptr<FileAssembly> assembly, bool logReplayed, SelectiveMetadataConsumer& consumer);
  ~DiskFileImpl() override;

  std::uint32_t GetFileType() override { return fileType_; }
  WriteGuids GetWriteGuids() override { return guids_; }
  DiskParameters GetDiskParameters() override { return parameters_; }
  ParentLocatorEntryList GetParentLocatorEntries() override { return locator_; }
  void EnumerateMetadata(MetadataConsumer& consumer) override;
  void SetMetadata(MetadataProvider& provider) override;
  void RemoveMetadata(const MetadataDescriptor& descriptor) override;
  void Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) override;
  void Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) override;
  void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) override;
  void CollectChangedAreas(ChangedFile& changedFile, Vhd::DiskAreaCollector& collector) override;
  bool IsLogReplayed() override { return logReplayed_; }
  DiskFileLayout GetLayout() override;
  BlockCensus CountBlocks() override;

 private:
  void Init(SelectiveMetadataConsumer& consumer);
  void CheckBound(std::uint64_t sector) const;
  // Refuses a write whose BAT entries would lie behind the BAT region.
  void CheckBatRoom(std::uint64_t sector, std::uint64_t count) const;
  // The entries the geometry needs: with a differencing file's bitmap entry
  // of a last, incomplete chunk, which the table count leaves out.
  std::uint64_t TableEntries() const;
  // Calls `fn(index, entry)` for the first `count` entries of the table,
  // read where reads take them.
  template <class Fn>
  void ForEachTableEntry(std::uint64_t count, Fn fn);
  // Made on the first change that needs room, so that read-only use never
  // pays the walk over the BAT that finds where the named bytes end.
  AppendPoint& Place();
  // Every sector this file holds data for, present or defined as zero.
  void CollectAllData(Vhd::DiskAreaCollector& collector);
  // The table as the change queries read it: where reads take it, which
  // may reach past a region stated too short.
  Area BatTable() const;
  // Where each payload block lies, made once, on the first change query.
  std::shared_ptr<const Vhd::DataBlockInfoMap> BlockMap();
  std::unique_ptr<ChunkWriter> CreateChunkWriter(BatEntry* entries);
  void WriteChunks(std::uint64_t sector, std::uint64_t count, const std::uint8_t* bytes);
  void WriteBatArea(const BatArea& area);
  // Read afresh, after a change that may move a region; or from what the
  // open has just read.
  void FindReservedAreas();
  void FindReservedAreas(const HeaderInfo& header, const RegionList& regions);
  std::unique_ptr<MetadataModifier> CreateModifier();

  std::unique_ptr<FileAssembly> assembly_;
  bool logReplayed_;
  WriteGuids guids_;
  DiskParameters parameters_;
  std::uint32_t blockSize_ = 0;
  Area batLocation_;
  Area metadataLocation_;
  std::uint32_t fileType_ = 0;
  ParentLocatorEntryList locator_;
  BlockGeometry geometry_;
  std::unique_ptr<ChunkTraits> chunkTraits_;
  std::unique_ptr<BatAreaLoader> bat_;
  ReservedAreas reserved_;
  BitmapCache bitmapCache_;
  std::unique_ptr<AppendPoint> place_;
  std::shared_ptr<Vhd::RegionIndexedCollectingDataBlockInfoMap> blockMap_;
};

}  // namespace Vhdx
