#include "vhdx/metadata/aligning_space_manager.h"

#include <iterator>

#include "common/site.h"
#include "vhdx/metadata/alignment.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void AligningSpaceManager::SetBound(std::uint32_t size) {
  if (size > bound_) bound_ = size;
}

Area AligningSpaceManager::FitBehind(std::uint64_t end, std::uint64_t need,
                                     std::uint64_t room) const {
  const auto place = RoundUp(end, offsetAlignment_);
  if (!place) return {};
  const std::uint64_t skipped = *place - end;
  if (skipped > room || need > room - skipped) return {};
  return {*place, static_cast<std::uint32_t>(need)};
}

Area AligningSpaceManager::Allocate(std::uint32_t size) {
  const auto need = RoundUp(size, sizeAlignment_);
  if (!need || *need == 0 || *need > UINT32_MAX) return {};
  Area found{};
  if (occupied_.empty()) {
    found = FitBehind(start_, *need, bound_);
  } else {
    // The room in front of the first area is never looked at: first fit
    // starts behind it.
    for (auto cur = occupied_.begin(), next = std::next(cur); next != occupied_.end();
         cur = next++) {
      found = FitBehind(cur->End(), *need, next->Offset - cur->End());
      if (found.Size != 0) break;
    }
    if (found.Size == 0) {
      // The bound is compared with an absolute end here, without start; with
      // a start of 0, the only one in use, both readings agree.
      const std::uint64_t end = occupied_.rbegin()->End();
      if (end <= bound_) found = FitBehind(end, *need, bound_ - end);
    }
  }
  if (found.Size != 0) Occupy(found);
  return found;
}

void AligningSpaceManager::CheckBound(const Area& area) const {
  if (area.Offset < start_ || area.Offset - start_ > bound_ ||
      area.Size > bound_ - (area.Offset - start_))
    throw Common::MessageError(VR_SITE, kSpaceBounds);
}

void AligningSpaceManager::CheckIntersection(const Area& area) const {
  if (occupied_.count(area) != 0) throw Common::MessageError(VR_SITE, kSpaceOccupied);
}

void AligningSpaceManager::Occupy(const Area& area) {
  CheckBound(area);
  if (area.Size == 0) return;  // nothing is in use
  CheckIntersection(area);
  occupied_.insert(area);
}

AligningSpaceManager::Areas::iterator AligningSpaceManager::LocateExisting(std::uint64_t offset) {
  // Outside the space no area can begin; the test also keeps the probe below
  // from wrapping around.
  if (offset >= start_ && offset - start_ < bound_) {
    const auto it = occupied_.find(Area{offset, 1});
    if (it != occupied_.end() && it->Offset == offset) return it;
  }
  throw Common::MessageError(VR_SITE, kSpaceNotFound);
}

Area AligningSpaceManager::Expand(const Area& area) {
  const auto it = LocateExisting(area.Offset);
  if (area.Size == 0) return {};
  const Area old = *it;
  const auto next = std::next(it);
  const std::uint64_t room = next != occupied_.end() ? next->Offset - old.Offset
                             : old.Offset < bound_   ? bound_ - old.Offset
                                                     : 0;
  // The area starts where the old one does, so its size is all it needs.
  if (area.Size > room) return {};
  occupied_.erase(it);
  try {
    Occupy(area);
  } catch (...) {
    occupied_.insert(old);
    throw;
  }
  return area;
}

void AligningSpaceManager::Free(std::uint64_t offset) { occupied_.erase(LocateExisting(offset)); }

}  // namespace Vhdx
