#include "provider/hard_disk.h"

#include "common/assert.h"
#include "common/trace.h"
#include "provider/file_utilities.h"
#include "virtual_disks/virtual_machine_disk.h"

namespace VirtualWareRaw {
namespace {

// The disk type the provider opens every container with.
constexpr std::uint32_t kProviderDiskType = 3;

std::unique_ptr<rio_dir> OwnCopy(rio_dir& dir) {
  std::unique_ptr<rio_dir> copy = dir.OpenFolder(u".");
  VerifyFileObject(dir, copy.get());
  return copy;
}

}  // namespace

SafeRawHardDiskImpl::SafeRawHardDiskImpl(rio_dir& dir, const std::u16string& file)
    : file_(file), dir_(OwnCopy(dir)) {
  VR_ASSERT(dir_ && !file_.empty());
}

Common::Error SafeRawHardDiskImpl::GetDisk(VirtualMachineDiskEx*& disk) {
  try {
    if (!disk_) OpenDisk();
  } catch (const Common::Error& e) {
    return e;
  }
  disk = disk_.get();
  return Common::NoError;
}

void SafeRawHardDiskImpl::OpenDisk() {
  Common::Error error;
  std::unique_ptr<VirtualMachineDiskEx> newOne =
      VirtualDisks::OpenVhdxDisk(*dir_, file_, kProviderDiskType, nullptr, &error);
  if (error) throw Wrap(VR_SITE, kOpenVirtualDiskFileFailed, {file_}, error);
  VR_ASSERT(newOne);
  Common::TraceMessage(2, Common::kProviderTraceModule, 0, Common::Msg::OpeningVirtualDisk, {file_});
  disk_ = std::move(newOne);
}

MSVirtualPCHDD::MSVirtualPCHDD(rio_dir& dir, const std::u16string& file, std::uint32_t busType,
                               std::uint32_t bus, std::uint32_t location)
    : dir_(OwnCopy(dir)), file_(file), busType_(busType), bus_(bus), location_(location) {}

Common::Error MSVirtualPCHDD::GetFileName(Processor::String& file) {
  file = Processor::String(dir_->FullPath() + file_);
  return Common::NoError;
}

Common::Error MSVirtualPCHDD::GetDiskType(std::uint32_t& type) {
  type = 0;
  return Common::NoError;
}

Common::Error MSVirtualPCHDD::GetBusType(std::uint32_t& busType) {
  busType = busType_;
  return Common::NoError;
}

Common::Error MSVirtualPCHDD::GetBusId(std::uint32_t& bus) {
  bus = bus_;
  return Common::NoError;
}

Common::Error MSVirtualPCHDD::GetLocation(std::uint32_t& location) {
  location = location_;
  return Common::NoError;
}

Common::Error MSVirtualPCHDD::GetRawDisk(Processor::AutoRef<SafeRawHardDisk>& raw) {
  try {
    if (!raw_) raw_ = Processor::MakeRef<SafeRawHardDisk, SafeRawHardDiskImpl>(*dir_, file_);
  } catch (const Common::Error& e) {
    return e;
  }
  raw = raw_;
  return Common::NoError;
}

Processor::AutoRef<SafeHardDisk> CreateMSVirtualPCHDD(rio_dir* dir, const std::u16string& file,
                                                      std::uint32_t busType, std::uint32_t bus,
                                                      std::uint32_t location) {
  VR_ASSERT(dir);
  VR_ASSERT(!file.empty());
  if (!dir || file.empty()) throw Common::MessageError(VR_SITE, kInternalError);
  return Processor::MakeRef<SafeHardDisk, MSVirtualPCHDD>(*dir, file, busType, bus, location);
}

}  // namespace VirtualWareRaw
