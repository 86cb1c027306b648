// Vhdx::ExpandableFileRegionImpl: a writable region that grows by moving to
// room the allocator gives it, copying its content there before anyone is
// told of the move. Module-internal; the metadata modifier makes one per
// change.
#pragma once

#include <memory>

#include "vhdx/file/allocator.h"
#include "vhdx/file/expansion_monitor.h"
#include "vhdx/file/file.h"
#include "vhdx/file/file_region.h"

namespace Vhdx {

class ExpandableFileRegionImpl : public ExpandableFileRegion {
 public:
  // The file must outlive the region.
  ExpandableFileRegionImpl(File& file, const Area& location, std::shared_ptr<Allocator> allocator,
                           std::shared_ptr<ExpansionMonitor> monitor);

  Area GetLocation() const override { return region_->GetLocation(); }
  void Read(const Area& area, void* buffer) override { region_->Read(area, buffer); }
  void Write(const Area& area, const void* buffer) override { region_->Write(area, buffer); }
  void Expand(std::uint32_t newLength) override;

 private:
  void CopyContent(const Area& from, const Area& to);

  File& file_;
  std::unique_ptr<WritableFileRegion> region_;
  std::shared_ptr<Allocator> allocator_;
  std::shared_ptr<ExpansionMonitor> monitor_;
};

}  // namespace Vhdx
