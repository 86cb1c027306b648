// Vhdx::DiskFile: one container file seen as sectors, with its type, write
// GUIDs, geometry, parent locator and metadata; and the decorator bases the
// rest of the family builds on. Module-internal; the disk and its chain of
// parents (and the tools that inspect a single file) hold these.
#pragma once

#include <cstdint>
#include <memory>

#include "common/guid.h"
#include "vellumrig/tracker.h"
#include "vhd/bitmap.h"
#include "vhd/collector.h"
#include "vhdx/blocks/sector_run.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "vhdx/metadata/metadata_descriptor.h"
#include "vhdx/metadata/metadata_provider.h"
#include "vhdx/metadata/parent_locator.h"

namespace Vhdx {

// The file types a disk file reports.
enum DiskFileType : std::uint32_t {
  kFixedFile = 2,
  kDynamicFile = 3,
  kDifferencingFile = 4,
};

struct WriteGuids {
  Common::Guid DataWriteGuid{};
  Common::Guid FileWriteGuid{};
};

struct DiskParameters {
  std::uint64_t VirtualSize = 0;  // bytes
  std::uint32_t LogicalSectorSize = 0;
};

// Where the structures of a file lie, as found at open: for tools that
// look at a file's layout rather than its sectors.
struct DiskFileLayout {
  std::uint32_t BlockSize = 0;
  std::uint64_t BatOffset = 0;
  std::uint32_t BatLength = 0;
  std::uint64_t MetadataOffset = 0;
  std::uint32_t MetadataLength = 0;
};

// How many blocks of a file stand in each BAT state.
struct BlockCensus {
  std::uint64_t Blocks = 0;  // payload blocks of the virtual disk
  std::uint64_t NotPresent = 0;
  std::uint64_t Undefined = 0;
  std::uint64_t Zero = 0;
  std::uint64_t Unmapped = 0;
  std::uint64_t FullyPresent = 0;
  std::uint64_t PartiallyPresent = 0;
  std::uint64_t Unknown = 0;         // states that are none
  std::uint64_t SectorBitmaps = 0;   // chunks with a sector bitmap block
};

class DiskFile {
 public:
  DiskFile() = default;
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;
  virtual ~DiskFile() = default;

  virtual std::uint32_t GetFileType() = 0;
  // As they stood at open; the renewal by a first write is not seen here.
  virtual WriteGuids GetWriteGuids() = 0;
  virtual DiskParameters GetDiskParameters() = 0;
  virtual ParentLocatorEntryList GetParentLocatorEntries() = 0;
  virtual void EnumerateMetadata(MetadataConsumer& consumer) = 0;
  virtual void SetMetadata(MetadataProvider& provider) = 0;
  virtual void RemoveMetadata(const MetadataDescriptor& descriptor) = 0;
  // `wanted` holds one bit per sector from `sector` on and `buffer` room for
  // all of them; the sectors this file holds are filled and their bits
  // cleared, what stays set must come from a parent.
  virtual void Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) = 0;
  // As Read, but reports to `map` where the sectors this file holds lie.
  virtual void Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) = 0;
  // `count` whole sectors from `buffer`.
  virtual void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) = 0;
  // The sectors of the virtual disk that `changedFile` (the changes of this
  // container's host file) makes changed, to `collector`.
  virtual void CollectChangedAreas(ChangedFile& changedFile, Vhd::DiskAreaCollector& collector) = 0;
  // Whether this open found and played an unfinished log.
  virtual bool IsLogReplayed() = 0;
  virtual DiskFileLayout GetLayout() = 0;
  virtual BlockCensus CountBlocks() = 0;
};

// Adds nothing: the common base of everything that wraps a disk file.
class DiskFileDecorator : public DiskFile {};

// Owns a disk file and forwards everything to it.
class DiskFileDelegate : public DiskFileDecorator {
 public:
  explicit DiskFileDelegate(std::unique_ptr<DiskFile> inner) : inner_(std::move(inner)) {}

  std::uint32_t GetFileType() override { return inner_->GetFileType(); }
  WriteGuids GetWriteGuids() override { return inner_->GetWriteGuids(); }
  DiskParameters GetDiskParameters() override { return inner_->GetDiskParameters(); }
  ParentLocatorEntryList GetParentLocatorEntries() override { return inner_->GetParentLocatorEntries(); }
  void EnumerateMetadata(MetadataConsumer& consumer) override { inner_->EnumerateMetadata(consumer); }
  void SetMetadata(MetadataProvider& provider) override { inner_->SetMetadata(provider); }
  void RemoveMetadata(const MetadataDescriptor& descriptor) override { inner_->RemoveMetadata(descriptor); }
  void Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) override {
    inner_->Read(sector, wanted, buffer);
  }
  void Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) override {
    inner_->Map(sector, wanted, map);
  }
  void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) override {
    inner_->Write(sector, count, buffer);
  }
  void CollectChangedAreas(ChangedFile& changedFile, Vhd::DiskAreaCollector& collector) override {
    inner_->CollectChangedAreas(changedFile, collector);
  }
  bool IsLogReplayed() override { return inner_->IsLogReplayed(); }
  DiskFileLayout GetLayout() override { return inner_->GetLayout(); }
  BlockCensus CountBlocks() override { return inner_->CountBlocks(); }

 protected:
  DiskFile& Inner() { return *inner_; }

 private:
  std::unique_ptr<DiskFile> inner_;
};

}  // namespace Vhdx
