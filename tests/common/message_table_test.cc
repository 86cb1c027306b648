#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "common/message_table.h"

namespace Common {
namespace {

std::uint32_t Word(const std::uint8_t* p) {
  std::uint32_t v;
  std::memcpy(&v, p, 4);
  return v;
}

TEST(MessageTableTest, CompiledTableHasTheCatalogueLayout) {
  const std::uint8_t* table = kEnglishMessageTable;
  const std::uint32_t size = Word(table);
  EXPECT_EQ(Word(table + 4), 1698u);
  EXPECT_TRUE(IsValidMessageTable(table, size));
  // Every entry is self-relative and lands inside the table on a UTF-16
  // string that ends before the table does.
  for (std::uint32_t i = 0; i < 1698; ++i) {
    const std::uint8_t* field = table + 8 + 4 * i;
    const std::uint8_t* text = field + Word(field);
    ASSERT_LT(static_cast<std::uint32_t>(text - table), size) << i;
    ASSERT_EQ(reinterpret_cast<std::uintptr_t>(text) % 2, 0u) << i;
    const char16_t* s = reinterpret_cast<const char16_t*>(text);
    const std::size_t n = std::char_traits<char16_t>::length(s);
    ASSERT_LE(static_cast<std::uint32_t>(text - table) + 2 * n + 2, size) << i;
  }
}

TEST(MessageTableTest, TextsAreFoundByEntry) {
  EXPECT_EQ(std::u16string(GetMessage(Msg::OpenServerFailed)),
            u"Failed to open the virtualization server.");
  EXPECT_EQ(MessageText(Msg::CompanionError), u"Companion error:\n");
  // Unused entries are empty, and numbers past the table have no text.
  EXPECT_EQ(MessageText(1697), u"");
  EXPECT_EQ(GetMessage(1698), nullptr);
}

TEST(MessageTableTest, EntryOfTheLanguageIsANarrowBlock) {
  const char* block = reinterpret_cast<const char*>(GetMessage(Msg::LanguageInfo));
  for (const char* part : {"1", "0x0409", "en_US", "en-US", "iso10646-1,iso8859-1"}) {
    EXPECT_STREQ(block, part);
    block += std::strlen(block) + 1;
  }
}

TEST(MessageTableTest, ValidationRefusesOtherVersionsAndSizes) {
  const std::uint32_t size = Word(kEnglishMessageTable);
  EXPECT_FALSE(IsValidMessageTable(kEnglishMessageTable, size + 4));
  EXPECT_FALSE(IsValidMessageTable(kEnglishMessageTable, 4));
  EXPECT_FALSE(IsValidMessageTable(nullptr, 8));
  std::uint8_t other[8] = {8, 0, 0, 0, 0xA1, 0x06, 0, 0};  // count 1697
  EXPECT_FALSE(IsValidMessageTable(other, 8));
}

TEST(MessageTableTest, WithoutATableThereIsNoText) {
  SetActiveMessageTable(nullptr);
  EXPECT_EQ(GetMessage(Msg::InternalError), nullptr);
  EXPECT_EQ(ActiveMessageTable().Size, 0u);
  SetActiveMessageTable(kEnglishMessageTable);
  EXPECT_NE(GetMessage(Msg::InternalError), nullptr);
}

}  // namespace
}  // namespace Common
