#include "vhdx/disk/disk_file_impl.h"

#include <algorithm>
#include <vector>

#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhd/block_bitmap_arrays.h"
#include "vhd/changed_file_map.h"
#include "vhd/fixed_value_reporting_collector.h"
#include "vhd/intersected_interval_collector.h"
#include "vhd/present_bitmap_enumerator.h"
#include "vhdx/bat/bat_collectors.h"
#include "vhdx/bat/bat_entry_array.h"
#include "vhdx/blocks/bitmap_loader.h"
#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/blocks/bat_disk_reader.h"
#include "vhdx/blocks/chunk_writer.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/metadata_policy.h"
#include "vhdx/metadata/metadata_reader.h"
#include "vhdx/metadata/metadata_value_consumer.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/file/updating_region_monitor.h"
#include "vhdx/metadata/well_known_items.h"

namespace Vhdx {

namespace {

std::u16string Decimal(std::uint64_t value) { return Common::FromUtf8(std::to_string(value)); }

Area RegionArea(const RegionList& regions, const Common::Guid& guid) {
  const RegionTableEntry entry = GetRegionEntryById(regions, guid);
  return {entry.FileOffset, entry.Length};
}

// A region that shares bytes with another region, the log or the headers
// would have the engine's updates of one overwrite the other (a BAT update
// landing in the metadata table, say), and the file would open no more:
// such a file is refused before anything is read through its regions.
void CheckRegionsApart(const HeaderInfo& header, const RegionList& regions) {
  struct Named {
    std::uint64_t Offset, Length;
  };
  std::vector<Named> taken = {{0, Format::kMiB}, {header.LogOffset, header.LogLength}};
  for (const RegionTableEntry& region : regions) {
    const Named mine{region.FileOffset, region.Length};
    for (const Named& other : taken) {
      // Differences, not sums: hostile offsets near 2^64 must not wrap.
      const bool overlap = mine.Length != 0 && other.Length != 0 &&
                           (mine.Offset >= other.Offset ? mine.Offset - other.Offset < other.Length
                                                        : other.Offset - mine.Offset < mine.Length);
      if (overlap)
        throw Common::MessageError(VR_SITE, kRegionsOverlap, {Decimal(mine.Offset), Decimal(mine.Length)});
    }
    taken.push_back(mine);
  }
}

}  // namespace

DiskFileImpl::DiskFileImpl(std::unique_ptr<FileAssembly> assembly, bool logReplayed,
                           SelectiveMetadataConsumer& consumer)
    : assembly_(std::move(assembly)), logReplayed_(logReplayed) {
  Init(consumer);
}

DiskFileImpl::~DiskFileImpl() = default;

void DiskFileImpl::Init(SelectiveMetadataConsumer& consumer) {
  File& file = assembly_->GetReadFile();
  const HeaderInfo header = HeaderReader::Read(file);
  guids_ = {header.DataWriteGuid, header.FileWriteGuid};

  const RegionList regions = RegionTableReader::Read(file);
  batLocation_ = RegionArea(regions, Format::kBatRegionGuid);
  metadataLocation_ = RegionArea(regions, Format::kMetadataRegionGuid);
  CheckRegionsApart(header, regions);

  auto logical = std::make_shared<SingleValueMetadataConsumer<VirtualDiskLogicalSectorSize>>(
      Format::kLogicalSectorSizeItem, false);
  // Taken only so that the required item counts as understood; the engine
  // has no use for the value.
  auto physical = std::make_shared<SingleValueMetadataConsumer<VirtualDiskPhysicalSectorSize>>(
      Format::kPhysicalSectorSizeItem, false);
  auto parameters = std::make_shared<SingleValueMetadataConsumer<FileParameters>>(Format::kFileParametersItem, false);
  auto size = std::make_shared<SingleValueMetadataConsumer<VirtualDiskSize>>(Format::kVirtualDiskSizeItem, false);
  auto locator = std::make_shared<ParentLocatorMetadataConsumerImpl>();

  DispatchingComposite composite(std::make_unique<ThrowOnRequiredUnhandledMetadata>());
  for (std::shared_ptr<SelectiveMetadataConsumer> own :
       std::initializer_list<std::shared_ptr<SelectiveMetadataConsumer>>{logical, physical, parameters, size, locator})
    composite.Add(std::make_shared<OnceMetadataConsumer>(std::move(own)));
  composite.Add(std::make_shared<MetadataConsumerDelegate>(consumer));

  MetadataReaderImpl(std::make_unique<ReadOnlyFileRegionImpl>(file, metadataLocation_)).Read(composite);

  if (!logical->GetValue()) throw Common::MessageError(VR_SITE, kNoLogicalSectorSize);
  if (!size->GetValue()) throw Common::MessageError(VR_SITE, kNoDiskSize);
  if (!parameters->GetValue()) throw Common::MessageError(VR_SITE, kNoFileParameters);
  parameters_ = {size->GetValue()->Bytes, logical->GetValue()->Bytes};

  const FileParameters fileParameters = *parameters->GetValue();
  blockSize_ = fileParameters.BlockSize;
  fileType_ = fileParameters.HasParent()              ? kDifferencingFile
              : fileParameters.LeaveBlocksAllocated() ? kFixedFile
                                                      : kDynamicFile;
  locator_ = locator->GetEntries();

  // A hostile file must not reach the block arithmetic with a block or
  // sector size that would divide by zero or leave sectors unmapped.
  geometry_ = BlockGeometry::Make(blockSize_, parameters_.LogicalSectorSize, parameters_.VirtualSize);
  chunkTraits_ = std::make_unique<ChunkTraits>(geometry_.ChunkRatio, geometry_.SectorsPerBlock);
  bat_ = std::make_unique<BatAreaLoader>(file, batLocation_, geometry_.ChunkRatio, TableEntries());
  FindReservedAreas(header, regions);
}

void DiskFileImpl::FindReservedAreas() {
  File& file = assembly_->GetReadFile();
  FindReservedAreas(HeaderReader::Read(file), RegionTableReader::Read(file));
}

void DiskFileImpl::FindReservedAreas(const HeaderInfo& header, const RegionList& regions) {
  reserved_ = {};
  reserved_.Add(0, Format::kMiB);
  reserved_.Add(header.LogOffset, header.LogLength);
  for (const RegionTableEntry& region : regions) reserved_.Add(region.FileOffset, region.Length);
}

DiskFileLayout DiskFileImpl::GetLayout() {
  const Area metadata = RegionArea(RegionTableReader::Read(assembly_->GetReadFile()), Format::kMetadataRegionGuid);
  return {blockSize_, batLocation_.Offset, batLocation_.Size, metadata.Offset, metadata.Size};
}

std::uint64_t DiskFileImpl::TableEntries() const {
  if (fileType_ == kDifferencingFile && geometry_.PayloadBlocks != 0)
    return BitmapEntryIndex((geometry_.PayloadBlocks - 1) / geometry_.ChunkRatio, geometry_.ChunkRatio) + 1;
  return geometry_.BatEntryCount;
}

template <class Fn>
void DiskFileImpl::ForEachTableEntry(std::uint64_t count, Fn fn) {
  // A small table gets a small buffer: a fresh megabyte per call costs more
  // than reading a few entries.
  const std::uint64_t piece = std::min<std::uint64_t>(Format::kMiB / sizeof(BatEntry), std::max<std::uint64_t>(count, 1));
  std::vector<std::uint8_t> bytes(piece * sizeof(BatEntry));
  for (std::uint64_t first = 0; first < count; first += piece) {
    const std::uint64_t n = std::min(piece, count - first);
    assembly_->GetReadFile().Read(batLocation_.Offset + first * sizeof(BatEntry), n * sizeof(BatEntry), bytes.data());
    for (std::uint64_t i = 0; i < n; ++i) fn(first + i, BatEntry(LoadLe64(bytes.data() + i * sizeof(BatEntry))));
  }
}

BlockCensus DiskFileImpl::CountBlocks() {
  BlockCensus census;
  census.Blocks = geometry_.PayloadBlocks;
  const ParametrizedBatIndexTraits traits(geometry_.ChunkRatio);
  std::uint64_t seen = 0;
  ForEachTableEntry(TableEntries(), [&](std::uint64_t index, const BatEntry& entry) {
    if (traits.IsBitmapEntry(index)) {
      census.SectorBitmaps += entry.GetState() == SB_BLOCK_PRESENT;
      return;
    }
    if (traits.GetPayloadIndex(index) >= census.Blocks) return;
    ++seen;
    switch (entry.GetState()) {
      case PAYLOAD_BLOCK_NOT_PRESENT: ++census.NotPresent; break;
      case PAYLOAD_BLOCK_UNDEFINED: ++census.Undefined; break;
      case PAYLOAD_BLOCK_ZERO: ++census.Zero; break;
      case PAYLOAD_BLOCK_UNMAPPED: ++census.Unmapped; break;
      case PAYLOAD_BLOCK_FULLY_PRESENT: ++census.FullyPresent; break;
      case PAYLOAD_BLOCK_PARTIALLY_PRESENT: ++census.PartiallyPresent; break;
      default: ++census.Unknown; break;
    }
  });
  census.NotPresent += census.Blocks - std::min(seen, census.Blocks);
  return census;
}

Area DiskFileImpl::BatTable() const {
  const std::uint64_t bytes = std::max<std::uint64_t>(batLocation_.Size, TableEntries() * sizeof(BatEntry));
  return {batLocation_.Offset, static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, UINT32_MAX))};
}

std::shared_ptr<const Vhd::DataBlockInfoMap> DiskFileImpl::BlockMap() {
  if (blockMap_) return blockMap_;
  auto map = std::make_shared<Vhd::RegionIndexedCollectingDataBlockInfoMap>(blockSize_);
  PayloadBatEntryToBlockInfoCollector fill(std::make_shared<ParametrizedBatIndexTraits>(geometry_.ChunkRatio),
                                           blockSize_ / parameters_.LogicalSectorSize, map);
  ForEachTableEntry(TableEntries(), [&](std::uint64_t index, const BatEntry& entry) { fill.Collect(index, entry); });
  return blockMap_ = map;
}

void DiskFileImpl::CollectAllData(Vhd::DiskAreaCollector& collector) {
  const std::shared_ptr<Vhd::DiskAreaCollector> out(std::shared_ptr<void>(), &collector);
  const auto batTraits = std::make_shared<ParametrizedBatIndexTraits>(geometry_.ChunkRatio);
  const auto blockTraits = std::make_shared<BlockSizeAwareDataBlockTraits>(blockSize_ / parameters_.LogicalSectorSize);
  ReadOnlyFileRegionImpl table(assembly_->GetReadFile(), BatTable());
  const auto entries = std::make_shared<FileRegionBatEntryArray>(table);
  const auto chunkBitmaps = std::make_shared<LoadingBitmapArray>(
      entries, std::make_shared<BitmapLoader>(assembly_->GetReadFile()), geometry_.ChunkRatio);
  const auto blockBitmaps = std::make_shared<BlockBitmapArray>(
      chunkBitmaps, std::shared_ptr<const ChunkFeatures>(std::shared_ptr<void>(), chunkTraits_.get()));
  DispatchingBatEntryCollector dispatch(
      batTraits,
      std::make_shared<BatEntryToDiskAreaCollector>(
          batTraits, std::make_shared<BlockDiskAreaEnumeratorArray>(blockTraits), out),
      std::make_shared<BatEntryToDiskAreaCollector>(
          batTraits,
          std::make_shared<BlockBitmapDiskAreaEnumeratorArray>(
              blockTraits, std::make_shared<Vhd::PresentBitmapEnumeratorFactory>(), blockBitmaps),
          out));
  ArrayEntryEnumerator<BatEntry>(entries).Enumerate(0, TableEntries(), dispatch);
}

void DiskFileImpl::CollectChangedAreas(ChangedFile& changedFile, Vhd::DiskAreaCollector& collector) {
  bool full = false;
  if (Common::Error error = changedFile.IsFull(full)) throw error;
  // The limit is the virtual size in bytes although areas count sectors:
  // wider than the disk, never narrower, and the queries cut to the disk.
  const Vhd::DiskArea limit{0, parameters_.VirtualSize};
  if (full) {
    if (fileType_ == kFixedFile) collector.Collect(limit);
    else CollectAllData(collector);
    return;
  }
  IntersectedIntervalCollector<Vhd::DiskArea> limited(limit, collector);
  Vhd::ChangedFileRegionEnumerator regions(std::shared_ptr<ChangedFile>(std::shared_ptr<void>(), &changedFile));
  if (logReplayed_) {
    // The replay wrote into the file behind the tracker's back: any change
    // at all stands for the whole disk.
    FixedValueReportingCollector<Vhd::FileRegion, Vhd::DiskArea> whole(limit, limited);
    regions.Enumerate(whole);
    return;
  }
  const std::shared_ptr<Vhd::DiskAreaCollector> out(std::shared_ptr<void>(), &limited);
  const auto batTraits = std::make_shared<ParametrizedBatIndexTraits>(geometry_.ChunkRatio);
  const std::uint32_t sectorsPerBlock = blockSize_ / parameters_.LogicalSectorSize;
  const Area table = BatTable();
  ReadOnlyFileRegionImpl tableRegion(assembly_->GetReadFile(), table);
  RegionCollectorComposite branches;
  // Payload written: the sectors it holds, partly touched ones whole.
  branches.Add(std::make_shared<Vhd::DataBlocksRegionCollector>(BlockMap(), blockSize_,
                                                                parameters_.LogicalSectorSize, out));
  // Table entries rewritten: a block whose entry holds no payload now
  // changed, though no payload write tells of it.
  branches.Add(std::make_shared<RegionToRegionAreaCollector>(
      table, std::make_shared<BatRegionAreaCollector>(
                 std::make_shared<ArrayEntryEnumerator<BatEntry>>(std::make_shared<FileRegionBatEntryArray>(tableRegion)),
                 std::make_shared<LimitedBatRegionAreaToIndexMap>(TableEntries()),
                 std::make_shared<EmptyBatEntryToDiskAreaCollector>(batTraits, sectorsPerBlock, out))));
  regions.Enumerate(branches);
}

AppendPoint& DiskFileImpl::Place() {
  if (place_) return *place_;
  // Everything that names bytes of the file: its own structures, and every
  // table entry with a place, payload or sector bitmap, in the region or
  // behind a region stated too short. The rest of the region is padding
  // that names nothing. Entries that lie behind the end of the file cannot
  // be read and are left out.
  std::uint64_t end = reserved_.End();
  const std::uint64_t size = assembly_->GetReadFile().GetSize();
  const std::uint64_t held = batLocation_.Offset < size ? (size - batLocation_.Offset) / sizeof(BatEntry) : 0;
  const std::uint64_t count = std::min(held, TableEntries());
  const ParametrizedBatIndexTraits traits(geometry_.ChunkRatio);
  ForEachTableEntry(count, [&](std::uint64_t index, const BatEntry& entry) {
    const std::uint64_t state = entry.GetState();
    const bool bitmap = traits.IsBitmapEntry(index);
    // Zero and unmapped entries may keep the place they had.
    const bool placed = bitmap ? state == SB_BLOCK_PRESENT
                               : state == PAYLOAD_BLOCK_ZERO || state == PAYLOAD_BLOCK_UNMAPPED ||
                                     state == PAYLOAD_BLOCK_FULLY_PRESENT || state == PAYLOAD_BLOCK_PARTIALLY_PRESENT;
    if (!placed || entry.GetFileOffset() == 0) return;
    const std::uint64_t length = bitmap ? kSectorBitmapBlockSize : blockSize_;
    end = std::max(end, entry.GetFileOffset() > UINT64_MAX - length ? UINT64_MAX : entry.GetFileOffset() + length);
  });
  place_ = std::make_unique<AppendPoint>(end);
  return *place_;
}

void DiskFileImpl::EnumerateMetadata(MetadataConsumer& consumer) {
  File& file = assembly_->GetReadFile();
  const Area location = RegionArea(RegionTableReader::Read(file), Format::kMetadataRegionGuid);
  FilteringMetadataConsumer filter(consumer, WellKnownItems::DiskFileItems());
  MetadataReaderImpl(std::make_unique<ReadOnlyFileRegionImpl>(file, location)).Read(filter);
}

std::unique_ptr<MetadataModifier> DiskFileImpl::CreateModifier() {
  File& file = assembly_->GetStructureFile();
  // Read afresh: an earlier change may have moved the region.
  const Area location = RegionArea(RegionTableReader::Read(file), Format::kMetadataRegionGuid);
  // A grown region goes where a new block would, never onto named bytes.
  auto allocator = std::make_shared<AtEndOfFileAllocator>(file, Format::kMiB, Format::kMiB, Place().Floor());
  auto monitor = std::make_shared<UpdatingRegionMonitor>(Format::kMetadataRegionGuid, file);
  return std::make_unique<MetadataModifierImpl>(
      std::make_unique<ExpandableFileRegionImpl>(file, location, std::move(allocator), std::move(monitor)));
}

void DiskFileImpl::SetMetadata(MetadataProvider& provider) {
  const std::unique_ptr<MetadataModifier> modifier = CreateModifier();
  WritingMetadataConsumer writer(*modifier);
  FilteringMetadataProvider filtered(provider, WellKnownItems::DiskFileItems());
  try {
    filtered.Provide(writer);
  } catch (...) {
    FindReservedAreas();
    throw;
  }
  FindReservedAreas();
}

void DiskFileImpl::RemoveMetadata(const MetadataDescriptor& descriptor) {
  CreateModifier()->Remove(descriptor);
}

void DiskFileImpl::CheckBound(std::uint64_t sector) const {
  if (sector >= geometry_.SectorCount) throw Common::MessageError(VR_SITE, kBeyondAllocation);
}

void DiskFileImpl::Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) {
  BatDiskReader(assembly_->GetReadFile(), *bat_, geometry_, fileType_ == kDifferencingFile, &bitmapCache_)
      .Read(sector, wanted, buffer);
}

void DiskFileImpl::Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) {
  BatDiskReader(assembly_->GetReadFile(), *bat_, geometry_, fileType_ == kDifferencingFile, &bitmapCache_)
      .Map(sector, wanted, map);
}

void DiskFileImpl::CheckBatRoom(std::uint64_t sector, std::uint64_t count) const {
  const std::uint64_t lastBlock = (sector + count - 1) / geometry_.SectorsPerBlock;
  std::uint64_t lastIndex = PayloadEntryIndex(lastBlock, geometry_.ChunkRatio);
  if (fileType_ == kDifferencingFile)
    lastIndex = std::max(lastIndex, BitmapEntryIndex(lastBlock / geometry_.ChunkRatio, geometry_.ChunkRatio));
  // Reads take such entries from behind the region, but writing them would
  // change bytes the region table gives to something else, or to nothing.
  if ((lastIndex + 1) * sizeof(BatEntry) > batLocation_.Size)
    throw Common::MessageError(VR_SITE, kBatRegionShort,
                               {Decimal(batLocation_.Size / sizeof(BatEntry)), Decimal(lastIndex + 1)});
}

std::unique_ptr<ChunkWriter> DiskFileImpl::CreateChunkWriter(BatEntry* entries) {
  switch (fileType_) {
    case kFixedFile:
    case kDynamicFile:
      return std::make_unique<NonDifferencingDiskChunkWriter>(entries, geometry_.SectorsPerBlock,
                                                              assembly_->GetDataFile(), blockSize_, Place(), reserved_);
    case kDifferencingFile:
      return std::make_unique<DifferencingDiskChunkWriter>(entries, geometry_.ChunkRatio, geometry_.SectorsPerBlock,
                                                           assembly_->GetDataFile(), assembly_->GetStructureFile(),
                                                           blockSize_, Place(), reserved_, bitmapCache_);
    default:
      throw Common::MessageError(VR_SITE, kUnknownFileType);
  }
}

void DiskFileImpl::Write(std::uint64_t sector, std::uint64_t count, const void* buffer) {
  if (count == 0) return CheckBound(sector);
  if (sector + count - 1 < sector) throw Common::MessageError(VR_SITE, kBeyondAllocation);
  CheckBound(sector + count - 1);
  CheckBatRoom(sector, count);

  try {
    WriteChunks(sector, count, static_cast<const std::uint8_t*>(buffer));
  } catch (...) {
    // The kept bitmap may hold bits that never reached the file.
    bitmapCache_.Drop();
    throw;
  }
}

void DiskFileImpl::WriteChunks(std::uint64_t sector, std::uint64_t count, const std::uint8_t* bytes) {
  const std::shared_ptr<BatArea> area = bat_->Load(sector, count);
  const std::uint64_t entriesPerChunk = std::uint64_t{geometry_.ChunkRatio} + 1;
  bool changed = false;
  for (std::uint64_t done = 0; done < count;) {
    const std::uint64_t at = sector + done;
    const std::uint64_t chunk = (at >> 23) - area->FirstChunk;
    const std::unique_ptr<ChunkWriter> writer = CreateChunkWriter(area->Entries.data() + chunk * entriesPerChunk);
    const std::uint64_t c = ChunkTraits::GetSectorsInChunk(at, count - done);
    writer->Write(ChunkTraits::GetOffsetInChunk(at),
                  {geometry_.SectorSize, bytes + done * geometry_.SectorSize, c});
    writer->Commit();
    changed = changed || writer->IsBatEntryChanged();
    done += c;
  }
  if (changed) WriteBatArea(*area);
}

void DiskFileImpl::WriteBatArea(const BatArea& area) {
  const std::uint64_t start = area.FirstChunk * (std::uint64_t{geometry_.ChunkRatio} + 1) * sizeof(BatEntry);
  // The slice may count a chunk behind the last one; what lies past the BAT
  // region is not the BAT's to write (the room check kept changes inside).
  if (start >= batLocation_.Size) return;
  const std::uint64_t size = std::min<std::uint64_t>(area.Entries.size() * sizeof(BatEntry), batLocation_.Size - start);
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size / sizeof(BatEntry); ++i) StoreLe64(bytes.data() + i * sizeof(BatEntry), area.Entries[i].Raw());
  assembly_->GetStructureFile().Write(batLocation_.Offset + start, bytes.size(), bytes.data());
}

}  // namespace Vhdx
