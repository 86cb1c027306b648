// Vhdx::AligningSpaceManager: first-fit allocation inside [start, start +
// bound], with offsets and sizes rounded up to their alignments.
// Module-internal; the metadata region's writer makes one over the region.
#pragma once

#include <cstdint>
#include <set>

#include "vhdx/metadata/space_manager.h"

namespace Vhdx {

class AligningSpaceManager : public SpaceManager {
 public:
  // Alignments of 0 mean none.
  AligningSpaceManager(std::uint32_t bound, std::uint64_t start, std::uint64_t offsetAlignment,
                       std::uint32_t sizeAlignment)
      : start_(start),
        bound_(bound),
        offsetAlignment_(offsetAlignment),
        sizeAlignment_(sizeAlignment) {}

  std::uint32_t GetBound() const override { return bound_; }
  void SetBound(std::uint32_t size) override;
  Area Allocate(std::uint32_t size) override;
  void Occupy(const Area& area) override;
  Area Expand(const Area& area) override;
  void Free(std::uint64_t offset) override;

 private:
  // Overlapping areas are equivalent under this order, touching ones are
  // not; the set never holds two that overlap, nor an empty one, which
  // would not be ordered against itself.
  struct Before {
    bool operator()(const Area& a, const Area& b) const { return a.Offset + a.Size <= b.Offset; }
  };
  using Areas = std::set<Area, Before>;

  // `need` bytes at `end` rounded up, if they fit in `room` bytes from `end`.
  Area FitBehind(std::uint64_t end, std::uint64_t need, std::uint64_t room) const;
  void CheckBound(const Area& area) const;
  void CheckIntersection(const Area& area) const;
  Areas::iterator LocateExisting(std::uint64_t offset);

  std::uint64_t start_;
  std::uint32_t bound_;
  std::uint64_t offsetAlignment_;
  std::uint32_t sizeAlignment_;
  Areas occupied_;
};

}  // namespace Vhdx
