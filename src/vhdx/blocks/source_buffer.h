// Vhdx::SourceBuffer: the sectors one write takes its data from, and the
// checked slices the chunk and block writers cut from it. Module-internal.
#pragma once

#include <cstdint>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

struct SourceBuffer {
  std::uint64_t SectorSize = 0;
  const std::uint8_t* Data = nullptr;  // the first sector
  std::uint64_t Count = 0;             // sectors

  std::uint64_t Bytes() const { return Count * SectorSize; }

  // Raises 0x3C001F unless sectors [offset, offset + count) lie inside; an
  // empty slice is measured by its first sector.
  void CheckBound(std::uint64_t offset, std::uint64_t count) const {
    const std::uint64_t last = count == 0 ? offset : offset + count - 1;
    if (offset >= Count || last >= Count || last < offset)
      throw Common::MessageError(VR_SITE, kBufferBounds);
  }
  SourceBuffer Slice(std::uint64_t offset, std::uint64_t count) const {
    CheckBound(offset, count);
    return {SectorSize, Data + offset * SectorSize, count};
  }
};

}  // namespace Vhdx
