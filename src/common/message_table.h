// The message table: every user-visible text of the module, by entry number.
// Module-internal; the entry numbers are in the generated common/message_ids.h.
//
// Layout: total size (4 bytes), entry count (4 bytes), one self-relative
// distance per entry, then NUL-terminated UTF-16 texts. The English table is
// compiled in; a translated catalogue of the same shape can take its place,
// and no table that was ever active is freed, because records keep pointers
// into it.
#pragma once

#include <cstdint>
#include <string_view>

#include "common/message_ids.h"

namespace Common {

extern const std::uint8_t kEnglishMessageTable[];

struct MessageTableView {
  const std::uint8_t* Base;  // null when there is no active table
  std::uint32_t Size;
};

// The active table, read without a lock: a reader sees the old or the new
// table, and both stay valid.
MessageTableView ActiveMessageTable();
void SetActiveMessageTable(const std::uint8_t* table);

// Whether a table has the layout and version of this module's table.
bool IsValidMessageTable(const std::uint8_t* table, std::uint32_t size);

// Runs before every lookup: in the module it sets up the translated
// catalogue at the first message and notices language changes later; the
// host library, which has only English, does nothing.
void PrepareMessageTable();

// The text of an entry in the active table; null without a table or for an
// entry number past the table's count. Leaves errno as it was.
const char16_t* GetMessage(std::uint32_t entry);

// The same, never null: a missing text is the empty string.
std::u16string_view MessageText(std::uint32_t entry);

}  // namespace Common
