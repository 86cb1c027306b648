// The plain regions: ReadOnlyFileRegionImpl and WritableFileRegionImpl, a
// fixed place in a Vhdx::File with the bound check of LocationAware.
// Module-internal; anyone who knows a region's place may make one.
#pragma once

#include "vhdx/file/file.h"
#include "vhdx/file/file_region.h"
#include "vhdx/file/location_aware.h"

namespace Vhdx {

class ReadOnlyFileRegionImpl : public ReadOnlyFileRegion, public LocationAware {
 public:
  // The file must outlive the region.
  ReadOnlyFileRegionImpl(File& file, const Area& location)
      : LocationAware(location), file_(file) {}

  Area GetLocation() const override { return Location(); }
  void Read(const Area& area, void* buffer) override;

 private:
  File& file_;
};

class WritableFileRegionImpl : public WritableFileRegion {
 public:
  // The file must outlive the region.
  WritableFileRegionImpl(File& file, const Area& location)
      : reader_(file, location), file_(file) {}

  Area GetLocation() const override { return reader_.GetLocation(); }
  void Read(const Area& area, void* buffer) override { reader_.Read(area, buffer); }
  void Write(const Area& area, const void* buffer) override;

 private:
  ReadOnlyFileRegionImpl reader_;
  File& file_;
};

}  // namespace Vhdx
