#include "vhdx/file/file_region_impl.h"

namespace Vhdx {

void ReadOnlyFileRegionImpl::Read(const Area& area, void* buffer) {
  CheckBound(area);
  file_.Read(FileOffsetOf(area), area.Size, buffer);
}

void WritableFileRegionImpl::Write(const Area& area, const void* buffer) {
  reader_.CheckBound(area);
  file_.Write(reader_.FileOffsetOf(area), area.Size, buffer);
}

}  // namespace Vhdx
