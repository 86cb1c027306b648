// Vhdx::AtEndOfFileAllocator: gives every request new room at the end of
// the file, which it grows; nothing freed or skipped is ever reused.
// Module-internal; the metadata modifier makes one per change.
#pragma once

#include <cstdint>

#include "vhdx/file/allocator.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class AtEndOfFileAllocator : public Allocator {
 public:
  // The file must outlive the allocator. Alignments of 0 mean none. Room is
  // never given before `floor`, the end of what the file's tables name,
  // which may lie behind the end of a file that was cut off.
  AtEndOfFileAllocator(File& file, std::uint64_t offsetAlignment, std::uint64_t sizeAlignment,
                       std::uint64_t floor = 0)
      : file_(file), offsetAlignment_(offsetAlignment), sizeAlignment_(sizeAlignment), floor_(floor) {}

  // Fails only as the file fails (or when the rounded size no longer fits an
  // area, with 0x3C0034).
  Area Allocate(const Area& request) override;

 private:
  File& file_;
  std::uint64_t offsetAlignment_;
  std::uint64_t sizeAlignment_;
  std::uint64_t floor_;
};

}  // namespace Vhdx
