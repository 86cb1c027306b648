// Vhdx::Disk: a whole virtual disk, a container file with the chain of its
// parents, read and written in sectors. Module-internal; the disk facade
// and the tools open disks through OpenDisk.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "vellumrig/folder.h"
#include "vellumrig/tracker.h"
#include "vhd/changed_file_map.h"
#include "vhd/collecting_disk_area_intersection.h"
#include "vhdx/disk/disk_file.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "vhdx/metadata/metadata_provider.h"

namespace Vhdx {

class DiskFileHierarchy;

class Disk {
 public:
  Disk() = default;
  Disk(const Disk&) = delete;
  Disk& operator=(const Disk&) = delete;
  virtual ~Disk() = default;

  virtual DiskParameters GetDiskParameters() = 0;
  // `count` sectors into `buffer`, through the chain.
  virtual void Read(std::uint64_t sector, std::uint64_t count, void* buffer) = 0;
  // Where sectors [sector, sector + count) come from, in ascending order;
  // neighbouring runs of one source (for data: one file, its bytes in a
  // row) come as one.
  virtual void Map(std::uint64_t sector, std::uint64_t count, const SectorRunSink& map) = 0;
  // Into the top file only.
  virtual void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) = 0;
  // Puts what was written on stable storage: the engine keeps no cache of
  // its own, so this is the top file's flush.
  virtual void Flush() = 0;
  // The top file's items, less those the disk and the disk file keep.
  virtual void EnumerateMetadata(MetadataConsumer& consumer) = 0;
  virtual void SetMetadata(MetadataProvider& provider) = 0;
  // The tracker's ID of now; raises 0x3C003B without a tracker.
  virtual std::string GetCurrentChangeID() = 0;
  // The sectors within `area` that changed since `changeId` ("*": all data
  // the chain holds), across the whole chain, in ascending order.
  virtual void GetChangedAreas(const std::string& changeId, const Vhd::DiskArea& area,
                               Vhd::DiskAreaCollector& collector) = 0;
  // The top file of the chain, for tools that inspect its layout.
  virtual DiskFileHierarchy& GetTop() = 0;
};

class DiskImpl : public Disk {
 public:
  // Opens `name` in `dir`, writable or read-only, with its parents
  // (always read-only). The folder is only used during the open.
  // `tracker`, when given, must outlive the disk; it answers the change
  // queries for IDs other than "*".
  DiskImpl(rio_dir& dir, const std::u16string& name, SelectiveMetadataConsumer& consumer, bool writable,
           FileTracker* tracker = nullptr);
  ~DiskImpl() override;

  DiskParameters GetDiskParameters() override;
  // Raises 0x3C0023 should a sector be left unread, which only an engine
  // fault can cause.
  void Read(std::uint64_t sector, std::uint64_t count, void* buffer) override;
  void Map(std::uint64_t sector, std::uint64_t count, const SectorRunSink& map) override;
  void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) override;
  void Flush() override;
  void EnumerateMetadata(MetadataConsumer& consumer) override;
  void SetMetadata(MetadataProvider& provider) override;
  std::string GetCurrentChangeID() override;
  // One walk of the chain for each ID: the answer is kept for the life of
  // the disk, so writes made through it afterwards are not in it.
  void GetChangedAreas(const std::string& changeId, const Vhd::DiskArea& area,
                       Vhd::DiskAreaCollector& collector) override;
  DiskFileHierarchy& GetTop() override { return *top_; }

 private:
  std::shared_ptr<Vhd::ChangedFileMap> CreateTrackedChangedFileMap(const std::string& changeId);
  std::shared_ptr<Vhd::CollectingDiskAreaIntersection> CollectChanges(const std::string& changeId);

  std::unique_ptr<DiskFileHierarchy> top_;
  FileTracker* tracker_;
  std::map<std::string, std::shared_ptr<Vhd::CollectingDiskAreaIntersection>> changes_;
};

}  // namespace Vhdx
