// VirtualDisks::VirtualDiskImpl and VhdxDiskImpl: the engine side of the
// disk facade. A failure to open is kept, not raised, and answers every
// later operation, so that a caller may make the object unconditionally and
// ask afterwards. Module-internal; the facade's disks hold one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "vellumrig/disk.h"
#include "vellumrig/folder.h"
#include "vellumrig/tracker.h"
#include "vhdx/disk/disk.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "virtual_disks/disked_file.h"

namespace VirtualDisks {

class VirtualDiskImpl {
 public:
  VirtualDiskImpl() = default;
  VirtualDiskImpl(const VirtualDiskImpl&) = delete;
  VirtualDiskImpl& operator=(const VirtualDiskImpl&) = delete;
  virtual ~VirtualDiskImpl() = default;

  virtual Common::Error Read(std::uint64_t sector, std::uint64_t count, void* buffer) = 0;
  virtual Common::Error Write(std::uint64_t sector, std::uint64_t count, const void* buffer) = 0;
  virtual std::uint32_t GetSectorSize() = 0;
  virtual std::uint64_t GetLastSector() = 0;
  virtual Fdisk::Geometry GetGeometry() = 0;
  virtual std::uint32_t GetDiskType() = 0;

  const Common::Error& LastError() const { return lastError_; }

 protected:
  // Takes a folder object of its own on `writableDir` when given (the disk
  // is then writable), else on `dir`; a failure waits in LastError. With
  // `openFile`, for an engine that works sector by sector through this
  // layer, the container is also opened once as file_.
  void Initialize(rio_dir* dir, rio_dir* writableDir, const std::u16string& name, bool openFile);

  std::unique_ptr<rio_dir> dir_;
  bool writable_ = false;
  std::u16string name_;
  std::unique_ptr<DiskedCachedFile> file_;  // null unless Initialize opened it
  Common::Error lastError_;
};

class VhdxDiskImpl : public VirtualDiskImpl {
 public:
  // `tracker`, when given, must outlive the disk.
  VhdxDiskImpl(rio_dir* dir, rio_dir* writableDir, const std::u16string& name, std::uint32_t diskType,
               FileTracker* tracker);

  Common::Error Read(std::uint64_t sector, std::uint64_t count, void* buffer) override;
  Common::Error Write(std::uint64_t sector, std::uint64_t count, const void* buffer) override;
  std::uint32_t GetSectorSize() override;
  std::uint64_t GetLastSector() override;
  Fdisk::Geometry GetGeometry() override;
  std::uint32_t GetDiskType() override { return diskType_; }
  // Throws the kept open failure, or what the engine raises.
  std::string GetCurrentChangeID();
  Common::Error GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                  std::vector<Fdisk::Interval>& changed);
  // `fn` on the open disk, its raised error returned; the kept open
  // failure instead when there is no disk.
  Common::Error Run(const std::function<void(Vhdx::Disk&)>& fn);

 private:
  std::uint64_t SectorCount();

  Vhdx::OnlyCheckingMetadataConsumer consumer_;
  std::unique_ptr<Vhdx::Disk> disk_;
  std::uint32_t diskType_;
};

}  // namespace VirtualDisks
