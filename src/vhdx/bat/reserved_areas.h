// Vhdx::ReservedAreas: the places of a container's own structures (first
// MiB, log, BAT, metadata). A hostile BAT may point a block there; reading
// such a block only shows the structure, but writing into it would destroy
// the file, so writers check their target against these first.
// Module-internal; the disk file keeps one, its chunk writers check it.
#pragma once

#include <cstdint>
#include <vector>

#include "vhd/interval.h"

namespace Vhdx {

class ReservedAreas {
 public:
  void Add(std::uint64_t offset, std::uint64_t size) {
    if (size != 0) areas_.push_back({offset, size});
  }
  // Raises 0x3C0040 naming `offset` when [offset, offset + size) touches a
  // reserved area.
  void Check(std::uint64_t offset, std::uint64_t size) const;
  // The end of the last reserved byte (UINT64_MAX if it cannot be named).
  std::uint64_t End() const;

 private:
  std::vector<Vhd::FileRegion> areas_;
};

}  // namespace Vhdx
