// Vhdx::SpaceManager: who uses which part of a bounded space (the metadata
// region, in bytes). Exhausted space is an empty result (Size 0), never an
// error; errors mean a fault of the caller. Module-internal interface.
#pragma once

#include <cstdint>

#include "vhdx/file/area.h"

namespace Vhdx {

class SpaceManager {
 public:
  SpaceManager() = default;
  SpaceManager(const SpaceManager&) = delete;
  SpaceManager& operator=(const SpaceManager&) = delete;
  virtual ~SpaceManager() = default;

  virtual std::uint32_t GetBound() const = 0;
  // Only ever raises the bound; a lower value changes nothing.
  virtual void SetBound(std::uint32_t size) = 0;
  // Finds room for `size` bytes and occupies it; empty if there is none.
  virtual Area Allocate(std::uint32_t size) = 0;
  // Records an area that is already in use.
  virtual void Occupy(const Area& area) = 0;
  // Grows (or shrinks) the area that starts at area.Offset in place to
  // area.Size; empty, with nothing changed, when there is no room.
  virtual Area Expand(const Area& area) = 0;
  // Releases the area that starts at `offset`.
  virtual void Free(std::uint64_t offset) = 0;
};

}  // namespace Vhdx
