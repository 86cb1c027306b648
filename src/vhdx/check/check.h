// Vhdx::CheckContainer: what is wrong in one container file, found without
// relying on the engine's open succeeding (a damaged file must still be
// reported) and without writing a byte. Each finding has a kind, a class
// (whether a repair may fix it) and a text with the numbers that place it.
// Module-internal; vrig's check and info use it, RepairContainer acts on it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vellumrig/file.h"

namespace Vhdx {

enum class FindingKind {
  HeaderInvalid,       // one header copy is damaged; the other stands
  NoValidHeader,       // neither copy is valid: nothing else can be read
  HeaderTie,           // both valid, same sequence number, different content
  RegionTableInvalid,  // one region table copy is damaged; the other stands
  Unopenable,          // the engine refuses the file: regions, metadata, version
  LogPending,          // a log waits to be replayed
  LogOrphanGuid,       // the header names a log that no entry carries
  LogDamaged,          // entries carry the log's GUID, but none can be replayed
  BadBlockState,       // a state that is none, or partly present outside a child
  BlockPastEnd,        // a block or sector bitmap lies (partly) past the end of the file
  BlockOverStructures, // a block lies over the headers, the log or a region
  BlocksShareBytes,    // two blocks (or bitmaps) share bytes
  BitmapMissing,       // a partly present block without its chunk's sector bitmap
  StaleBitmapBits,     // bits set for sectors of a block that is not present
};

enum class FindingClass {
  Corruption,  // data may be at risk; no repair here fixes it
  Repairable,  // RepairContainer fixes it without losing anything
};

struct Finding {
  FindingKind Kind;
  FindingClass Class;
  std::string Text;
  std::uint64_t Count = 1;  // the blocks it stands for, when it stands for several
};

struct CheckReport {
  std::vector<Finding> Findings;
  std::uint64_t Blocks = 0;     // payload blocks of the virtual disk
  std::uint64_t Allocated = 0;  // of them fully or partly present
  std::uint64_t FileSize = 0;
  // Where the stale bits lie (file offset and length in bytes of each run
  // of bitmap bytes to clear), for the repair.
  struct ByteRange {
    std::uint64_t Offset, Length;
  };
  std::vector<ByteRange> StaleBits;

  bool Has(FindingKind kind) const;
  bool HasCorruption() const;
  std::uint64_t Count(FindingKind kind) const;
};

// Reads `file` only. Raises the engine's error when it is no container at
// all (0x3C0003); everything else is a finding. Without `bitmaps` the
// sector bitmaps are not read (a quicker look at the tables).
CheckReport CheckContainer(ri_file& file, bool bitmaps = true);

}  // namespace Vhdx
