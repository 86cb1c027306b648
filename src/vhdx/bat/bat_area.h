// Vhdx::BatArea and its loader: the slice of the BAT that one request
// needs, read in one piece and kept until a request needs other chunks.
// Module-internal; the disk file's reads and writes share the one cached
// slice, and writes update its entries before they write them back.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vhdx/file/area.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/file/file.h"

namespace Vhdx {

struct BatArea {
  std::uint64_t FirstChunk = 0;
  std::uint64_t ChunkCount = 0;
  // ChunkCount * (ratio + 1) entries: chunk k's entries start at
  // k * (ratio + 1), its bitmap entry is the last of them.
  std::vector<BatEntry> Entries;
};

class BatAreaLoader {
 public:
  // The file must outlive the loader. `batLocation` is the BAT region, and
  // `tableEntries` the entries the disk's geometry needs; those are read
  // where they lie even when the region is stated shorter.
  BatAreaLoader(File& file, const Area& batLocation, std::uint32_t chunkRatio, std::uint64_t tableEntries)
      : file_(file), batLocation_(batLocation), chunkRatio_(chunkRatio), tableEntries_(tableEntries) {}

  // The slice for the chunks of the sectors [firstSector, firstSector +
  // count). The cached slice is returned as it stands, updates included,
  // when its chunks are the same; otherwise a new one replaces it.
  std::shared_ptr<BatArea> Load(std::uint64_t firstSector, std::uint64_t count);

  // The BAT region has moved or been rewritten behind the cache's back.
  void SetLocation(const Area& batLocation) {
    batLocation_ = batLocation;
    cached_.reset();
  }

 private:
  File& file_;
  Area batLocation_;
  std::uint64_t chunkRatio_;
  std::uint64_t tableEntries_;
  std::shared_ptr<BatArea> cached_;
};

}  // namespace Vhdx
