#include "vhdx/file/expandable_file_region.h"

#include <algorithm>
#include <cstdint>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/file_region_impl.h"

namespace Vhdx {
namespace {

constexpr std::uint32_t kCopyPiece = 4096;

}  // namespace

ExpandableFileRegionImpl::ExpandableFileRegionImpl(File& file, const Area& location,
                                                   std::shared_ptr<Allocator> allocator,
                                                   std::shared_ptr<ExpansionMonitor> monitor)
    : file_(file),
      region_(std::make_unique<WritableFileRegionImpl>(file, location)),
      allocator_(std::move(allocator)),
      monitor_(std::move(monitor)) {}

void ExpandableFileRegionImpl::Expand(std::uint32_t newLength) {
  const Area oldArea = region_->GetLocation();
  if (newLength <= oldArea.Size) return;
  const Area newArea = allocator_->Allocate({oldArea.Offset, newLength});
  // Less room than asked would have the copy below run past it.
  if (newArea.Size < newLength) throw Common::MessageError(VR_SITE, kInternalError);
  // The content moves first and the monitor hears of it last: until the
  // monitor has recorded the new place, the old one stays in force and whole,
  // so a failure anywhere before leaves a consistent file.
  if (newArea.Offset != oldArea.Offset) CopyContent(oldArea, newArea);
  region_ = std::make_unique<WritableFileRegionImpl>(file_, newArea);
  monitor_->OnExpanded(oldArea, newArea);
}

void ExpandableFileRegionImpl::CopyContent(const Area& from, const Area& to) {
  if (Overlap(from, to)) throw Common::MessageError(VR_SITE, kOverlappingCopy);
  std::uint8_t buffer[kCopyPiece];
  for (std::uint32_t done = 0; done < from.Size;) {
    const std::uint32_t piece = std::min(kCopyPiece, from.Size - done);
    file_.Read(from.Offset + done, piece, buffer);
    file_.Write(to.Offset + done, piece, buffer);
    done += piece;
  }
}

}  // namespace Vhdx
