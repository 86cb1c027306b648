#include "common/message_table.h"

#include <atomic>
#include <cstring>

namespace Common {
namespace {

std::uint32_t Read32(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, sizeof v);  // little-endian host
  return v;
}

std::atomic<const std::uint8_t*> g_activeTable{kEnglishMessageTable};

}  // namespace

MessageTableView ActiveMessageTable() {
  const std::uint8_t* base = g_activeTable.load(std::memory_order_acquire);
  return {base, base ? Read32(base) : 0};
}

void SetActiveMessageTable(const std::uint8_t* table) {
  g_activeTable.store(table, std::memory_order_release);
}

bool IsValidMessageTable(const std::uint8_t* table, std::uint32_t size) {
  return table && size >= 8 && Read32(table) == size && Read32(table + 4) == Msg::kEntryCount;
}

const char16_t* GetMessage(std::uint32_t entry) {
  PrepareMessageTable();
  const std::uint8_t* base = g_activeTable.load(std::memory_order_acquire);
  if (!base || entry >= Read32(base + 4)) return nullptr;
  const std::uint8_t* field = base + 8 + 4 * static_cast<std::size_t>(entry);
  return reinterpret_cast<const char16_t*>(field + Read32(field));
}

std::u16string_view MessageText(std::uint32_t entry) {
  const char16_t* text = GetMessage(entry);
  return text ? std::u16string_view(text) : std::u16string_view();
}

}  // namespace Common
