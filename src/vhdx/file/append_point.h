// Vhdx::AppendPoint: where a write puts a new payload or sector bitmap
// block. Blocks are appended, 1 MiB-aligned, behind the end of the file and
// behind the end of everything the file's tables name: in a file whose end
// was cut off, entries point at or past the end, and a block put at the
// file's end would share its bytes with theirs. Module-internal; the disk
// file keeps one for its writes and hands it to the block writers.
#pragma once

#include <cstdint>

#include "vhdx/file/file.h"

namespace Vhdx {

class AppendPoint {
 public:
  // `namedEnd`: the end of the last byte the file's tables name.
  explicit AppendPoint(std::uint64_t namedEnd) : floor_(namedEnd) {}

  // The offset for `size` new bytes in `file`. They count as taken from now
  // on, even if the write that wanted them fails: an entry changed in memory
  // may still point there. Raises 0x3C0034 when no such offset exists.
  std::uint64_t Take(File& file, std::uint64_t size);

  // Where the next block would go, for room that is taken otherwise.
  std::uint64_t Floor() const { return floor_; }

 private:
  std::uint64_t floor_;
};

}  // namespace Vhdx
