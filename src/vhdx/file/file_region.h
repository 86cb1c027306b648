// The three levels of file region: a bounded part of a Vhdx::File that can
// be read, written, or also grown (and so moved). Areas passed to a region
// are relative to its start. Module-internal interfaces; the metadata and
// BAT code work through them.
#pragma once

#include <cstdint>

#include "vhdx/file/area.h"

namespace Vhdx {

class ReadOnlyFileRegion {
 public:
  ReadOnlyFileRegion() = default;
  ReadOnlyFileRegion(const ReadOnlyFileRegion&) = delete;
  ReadOnlyFileRegion& operator=(const ReadOnlyFileRegion&) = delete;
  virtual ~ReadOnlyFileRegion() = default;

  // Where the region lies in the file.
  virtual Area GetLocation() const = 0;
  // Reads area.Size bytes.
  virtual void Read(const Area& area, void* buffer) = 0;
};

class WritableFileRegion : public ReadOnlyFileRegion {
 public:
  virtual void Write(const Area& area, const void* buffer) = 0;
};

class ExpandableFileRegion : public WritableFileRegion {
 public:
  // Grows the region to at least `newLength` bytes; it may move in the file.
  virtual void Expand(std::uint32_t newLength) = 0;
};

}  // namespace Vhdx
