#include "virtual_disks/vhdx_disk_impl.h"

#include "common/assert.h"
#include "common/message_error.h"
#include "common/site.h"
#include "vhd/collector.h"
#include "vhdx/format/errors.h"
#include "virtual_disks/geometry.h"
#include "virtual_disks/once_cached_file.h"

namespace VirtualDisks {
namespace {

constexpr Common::ErrorMessage kOpenFailed{0x3C0002, Common::Msg::EngineOpenFailed};

// The engine's changed areas, appended to the caller's list.
class ConvertingDiskAreaCollector : public Vhd::DiskAreaCollector {
 public:
  explicit ConvertingDiskAreaCollector(std::vector<Fdisk::Interval>& out) : out_(out) {}
  bool Collect(const Vhd::DiskArea& area) override {
    out_.push_back({area.Offset, area.Size});
    return true;
  }

 private:
  std::vector<Fdisk::Interval>& out_;
};

// The shape of every operation: the kept failure first, then the engine,
// whose raised error becomes the returned one.
template <class Fn>
Common::Error Guarded(const Common::Error& kept, const std::unique_ptr<Vhdx::Disk>& disk, Fn fn) {
  if (!kept.IsEmpty()) return kept;
  if (!VR_ASSERT(disk.get())) return Common::MessageError(VR_SITE, Vhdx::kInvalidArguments);
  try {
    fn(*disk);
  } catch (const Common::Error& e) {
    return e;
  }
  return Common::NoError;
}

}  // namespace

void VirtualDiskImpl::Initialize(rio_dir* dir, rio_dir* writableDir, const std::u16string& name,
                                 bool openFile) {
  lastError_ = Common::NoError;
  if (!dir) {
    lastError_ = Common::MessageError(VR_SITE, Vhdx::kInvalidArguments);
    return;
  }
  rio_dir* source = writableDir ? writableDir : dir;
  dir_ = source->OpenFolder(u".");
  if (!dir_) {
    lastError_ = Common::MessageError(VR_SITE, Vhdx::kInvalidArguments);
    lastError_.AddReason(source->TakeError());
    return;
  }
  writable_ = writableDir != nullptr;
  name_ = name;
  if (!openFile) return;
  file_ = OpenOnceCachedFile(dir_.get(), writable_ ? dir_.get() : nullptr, name_);
  if (!file_) {
    lastError_ = Common::MessageError(VR_SITE, kOpenFailed);
    lastError_.AddReason(dir_->TakeError());
  }
}

VhdxDiskImpl::VhdxDiskImpl(rio_dir* dir, rio_dir* writableDir, const std::u16string& name, std::uint32_t diskType,
                           FileTracker* tracker)
    : diskType_(diskType) {
  // The engine reaches its files itself: no once-cached file.
  Initialize(dir, writableDir, name, false);
  if (!lastError_.IsEmpty()) return;
  try {
    disk_ = std::make_unique<Vhdx::DiskImpl>(*dir_, name_, consumer_, writable_, tracker);
  } catch (const Common::Error& e) {
    lastError_ = e;
  }
}

Common::Error VhdxDiskImpl::Read(std::uint64_t sector, std::uint64_t count, void* buffer) {
  return Guarded(lastError_, disk_, [&](Vhdx::Disk& disk) { disk.Read(sector, count, buffer); });
}

Common::Error VhdxDiskImpl::Write(std::uint64_t sector, std::uint64_t count, const void* buffer) {
  return Guarded(lastError_, disk_, [&](Vhdx::Disk& disk) { disk.Write(sector, count, buffer); });
}

std::uint32_t VhdxDiskImpl::GetSectorSize() {
  std::uint32_t size = 0;
  Guarded(lastError_, disk_, [&](Vhdx::Disk& disk) { size = disk.GetDiskParameters().LogicalSectorSize; });
  return size;
}

std::uint64_t VhdxDiskImpl::SectorCount() {
  std::uint64_t count = 0;
  Guarded(lastError_, disk_, [&](Vhdx::Disk& disk) {
    const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
    count = parameters.VirtualSize / parameters.LogicalSectorSize;
  });
  return count;
}

std::uint64_t VhdxDiskImpl::GetLastSector() {
  const std::uint64_t count = SectorCount();
  return count == 0 ? 0 : count - 1;
}

Fdisk::Geometry VhdxDiskImpl::GetGeometry() { return ComputeGeometry(diskType_, SectorCount()); }

std::string VhdxDiskImpl::GetCurrentChangeID() {
  if (!lastError_.IsEmpty()) throw lastError_;
  return disk_->GetCurrentChangeID();
}

Common::Error VhdxDiskImpl::GetChangedSectors(const std::string& id, const Fdisk::Interval& area,
                                              std::vector<Fdisk::Interval>& changed) {
  return Guarded(lastError_, disk_, [&](Vhdx::Disk& disk) {
    ConvertingDiskAreaCollector collector(changed);
    disk.GetChangedAreas(id, {area.Offset, area.Size}, collector);
  });
}

Common::Error VhdxDiskImpl::Run(const std::function<void(Vhdx::Disk&)>& fn) {
  return Guarded(lastError_, disk_, fn);
}

}  // namespace VirtualDisks
