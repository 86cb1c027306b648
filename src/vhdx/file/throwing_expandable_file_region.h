// Vhdx::ThrowingExpandableFileRegion: a writable region offered as an
// expandable one whose Expand is a fault (0x3C0000 "An internal error."),
// for callers that must hand out an ExpandableFileRegion where growth is
// not allowed. Module-internal.
#pragma once

#include <memory>

#include "vhdx/file/file_region_decorator.h"

namespace Vhdx {

class ThrowingExpandableFileRegion : public WritableFileRegionDecorator<ExpandableFileRegion> {
 public:
  using WritableFileRegionDecorator::WritableFileRegionDecorator;

  void Expand(std::uint32_t newLength) override;
};

}  // namespace Vhdx
