#include "vhdx/disk/disk.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/format/errors.h"
#include "vhdx/metadata/well_known_items.h"

namespace Vhdx {

DiskImpl::DiskImpl(rio_dir& dir, const std::u16string& name, SelectiveMetadataConsumer& consumer, bool writable)
    : top_(OpenHierarchy(dir, name, consumer, writable)) {}

DiskImpl::~DiskImpl() = default;

DiskParameters DiskImpl::GetDiskParameters() { return top_->GetDiskParameters(); }

void DiskImpl::Read(std::uint64_t sector, std::uint64_t count, void* buffer) {
  const std::shared_ptr<Vhd::DataOwningBitmap> wanted = Vhd::CreateBitmap(count, true);
  top_->Read(sector, *wanted, buffer);
  if (wanted->Find(true) != count) throw Common::MessageError(VR_SITE, kNotAllSectorsRead);
}

void DiskImpl::Write(std::uint64_t sector, std::uint64_t count, const void* buffer) {
  top_->Write(sector, count, buffer);
}

void DiskImpl::EnumerateMetadata(MetadataConsumer& consumer) {
  FilteringMetadataConsumer filter(consumer, WellKnownItems::DiskItems());
  top_->EnumerateMetadata(filter);
}

void DiskImpl::SetMetadata(MetadataProvider& provider) {
  FilteringMetadataProvider filtered(provider, WellKnownItems::DiskItems());
  top_->SetMetadata(filtered);
}

}  // namespace Vhdx
