// Vhdx::BatEntry: one 64-bit entry of the block allocation table, with the
// states it can hold. Module-internal; the BAT walkers, the block readers
// and writers decode entries only through it.
//
// Bits 0-2 hold the state, bits 3-19 are reserved and survive every update,
// bits 20-63 hold the block's file offset in MiB.
#pragma once

#include <cstdint>

namespace Vhdx {

// The states of a payload block's entry. 4 and 5 are no state: code that
// picks a reader or writer by the state refuses them, walkers skip them.
enum PayloadBlockState : std::uint32_t {
  PAYLOAD_BLOCK_NOT_PRESENT = 0,
  PAYLOAD_BLOCK_UNDEFINED = 1,
  PAYLOAD_BLOCK_ZERO = 2,
  PAYLOAD_BLOCK_UNMAPPED = 3,
  PAYLOAD_BLOCK_FULLY_PRESENT = 6,
  PAYLOAD_BLOCK_PARTIALLY_PRESENT = 7,
};

// The states of a chunk's sector bitmap entry.
enum SectorBitmapState : std::uint32_t {
  SB_BLOCK_NOT_PRESENT = 0,
  SB_BLOCK_PRESENT = 6,
};

// One sector bitmap block covers this many sectors (its 1 MiB of bits): the
// span of a chunk, whatever the sector size.
inline constexpr std::uint64_t kSectorsPerChunk = 0x800000;
inline constexpr std::uint64_t kSectorBitmapBlockSize = kSectorsPerChunk / 8;

class BatEntry {
 public:
  constexpr BatEntry() = default;
  constexpr explicit BatEntry(std::uint64_t raw) : raw_(raw) {}

  constexpr std::uint64_t Raw() const { return raw_; }
  constexpr std::uint32_t GetState() const { return static_cast<std::uint32_t>(raw_ & kStateMask); }
  constexpr void SetState(std::uint32_t state) { raw_ = (raw_ & ~kStateMask) | (state & kStateMask); }
  constexpr std::uint64_t GetFileOffsetMb() const { return raw_ >> kOffsetShift; }
  // The block's byte offset in the file.
  constexpr std::uint64_t GetFileOffset() const { return GetFileOffsetMb() << kOffsetShift; }
  constexpr void SetFileOffsetMb(std::uint64_t offsetMb) {
    raw_ = (raw_ & kLowMask) | (offsetMb << kOffsetShift);
  }

  friend constexpr bool operator==(BatEntry, BatEntry) = default;

 private:
  static constexpr std::uint64_t kStateMask = 7;
  static constexpr unsigned kOffsetShift = 20;
  static constexpr std::uint64_t kLowMask = (std::uint64_t{1} << kOffsetShift) - 1;

  std::uint64_t raw_ = 0;
};

static_assert(sizeof(BatEntry) == 8, "a BAT is read into an array of entries as it lies on disk");

}  // namespace Vhdx
