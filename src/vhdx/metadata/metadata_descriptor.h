// Vhdx::MetadataDescriptor: the key of a metadata item in memory, and the
// lists of them that filters test against. Module-internal.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "common/guid.h"
#include "vhdx/format/format.h"

namespace Vhdx {

struct MetadataDescriptor {
  Common::Guid Id{};
  std::uint32_t Flags = 0;

  bool IsUser() const { return (Flags & Format::kMetadataIsUser) != 0; }
  bool IsRequired() const { return (Flags & Format::kMetadataIsRequired) != 0; }

  // Every field; identity is NamesSameItem.
  friend bool operator==(const MetadataDescriptor&, const MetadataDescriptor&) = default;
};

// A system item and a user item may share a GUID, so the IsUser bit is part
// of the name; the other bits describe the item and may change with a Set.
inline bool NamesSameItem(const MetadataDescriptor& a, const MetadataDescriptor& b) {
  return a.Id == b.Id && a.IsUser() == b.IsUser();
}

using MetadataDescriptorList = std::vector<MetadataDescriptor>;

inline bool ListNames(const MetadataDescriptorList& list, const MetadataDescriptor& descriptor) {
  return std::any_of(list.begin(), list.end(), [&](const MetadataDescriptor& listed) {
    return NamesSameItem(listed, descriptor);
  });
}

// The two message arguments every metadata error names an item by: the
// GUID as text and the flags as a decimal number.
std::u16string MetadataIdText(const MetadataDescriptor& descriptor);
std::u16string MetadataFlagsText(const MetadataDescriptor& descriptor);

}  // namespace Vhdx
