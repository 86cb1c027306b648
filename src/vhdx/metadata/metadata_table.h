// The table at the start of the metadata region, in memory: the header as
// read and the entries in table order. Module-internal; the reader and the
// modifier share it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/guid.h"
#include "vhdx/file/file_region.h"
#include "vhdx/format/format.h"
#include "vhdx/metadata/metadata_descriptor.h"

namespace Vhdx {

struct MetadataTableEntry {
  Common::Guid ItemId{};
  std::uint32_t Offset = 0;
  std::uint32_t Length = 0;
  std::uint32_t Flags = 0;
  // Written as 0 for new entries, carried through for the others.
  std::uint32_t Reserved = 0;

  MetadataDescriptor Descriptor() const { return {ItemId, Flags}; }
  friend bool operator==(const MetadataTableEntry&, const MetadataTableEntry&) = default;
};

struct MetadataTable {
  // Kept as read, so that rewriting the table changes only its count.
  std::array<std::uint8_t, Format::MetadataTable::kHeaderSize> Header{};
  std::vector<MetadataTableEntry> Entries;

  // Throws 0x3C0012 for a bad signature, and 0x3C0036 for a count whose
  // entries would reach past the table area or the region.
  static MetadataTable Read(ReadOnlyFileRegion& region);

  // Throws 0x3C0036 unless the entry's data passes the bound check of a
  // region of `regionSize` bytes, which lets its last byte be the one just
  // behind the region.
  static void CheckItemBound(const MetadataTableEntry& entry, std::uint32_t regionSize);

  // The index of the entry that names the same item, if any.
  std::optional<std::size_t> Find(const MetadataDescriptor& descriptor) const;

  // The header with the count of Entries, then the entries behind it. A
  // list longer than the table area holds is refused with 0x3C0036 before
  // any write.
  void Write(WritableFileRegion& region) const;
};

}  // namespace Vhdx
