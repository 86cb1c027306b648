// Vhdx::EncodeParentLocator: the parent locator item as a child container
// stores it, from its key/value entries. The reverse of ParentLocatorParser.
// Module-internal; creating a differencing container uses it.
#pragma once

#include <cstdint>
#include <vector>

#include "vhdx/metadata/parent_locator.h"

namespace Vhdx {

// The type GUID, the count, the entry table, then the keys and values as
// UTF-16LE text. Raises 0x3C0001 when the entries do not fit one item (a
// key or value past 32 KiB of text, or more entries than the count holds).
std::vector<std::uint8_t> EncodeParentLocator(const ParentLocatorEntryList& entries);

}  // namespace Vhdx
