// Vhdx::Allocator: finds a new home for a region that must grow.
// Module-internal interface; the expandable region calls it.
#pragma once

#include "vhdx/file/area.h"

namespace Vhdx {

class Allocator {
 public:
  Allocator() = default;
  Allocator(const Allocator&) = delete;
  Allocator& operator=(const Allocator&) = delete;
  virtual ~Allocator() = default;

  // An area of at least request.Size bytes; request.Offset tells where the
  // region lies now, which an allocator may or may not use.
  virtual Area Allocate(const Area& request) = 0;
};

}  // namespace Vhdx
