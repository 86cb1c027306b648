// Vhdx::Disk: a whole virtual disk, a container file with the chain of its
// parents, read and written in sectors. Module-internal; the disk facade
// and the tools open disks through OpenDisk.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/folder.h"
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
  // Into the top file only.
  virtual void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) = 0;
  // The top file's items, less those the disk and the disk file keep.
  virtual void EnumerateMetadata(MetadataConsumer& consumer) = 0;
  virtual void SetMetadata(MetadataProvider& provider) = 0;
  // The top file of the chain, for tools that inspect its layout.
  virtual DiskFileHierarchy& GetTop() = 0;
};

class DiskImpl : public Disk {
 public:
  // Opens `name` in `dir`, writable or read-only, with its parents
  // (always read-only). The folder is only used during the open.
  DiskImpl(rio_dir& dir, const std::u16string& name, SelectiveMetadataConsumer& consumer, bool writable);
  ~DiskImpl() override;

  DiskParameters GetDiskParameters() override;
  // Raises 0x3C0023 should a sector be left unread, which only an engine
  // fault can cause.
  void Read(std::uint64_t sector, std::uint64_t count, void* buffer) override;
  void Write(std::uint64_t sector, std::uint64_t count, const void* buffer) override;
  void EnumerateMetadata(MetadataConsumer& consumer) override;
  void SetMetadata(MetadataProvider& provider) override;
  DiskFileHierarchy& GetTop() override { return *top_; }

 private:
  std::unique_ptr<DiskFileHierarchy> top_;
};

}  // namespace Vhdx
