// The metadata region as the modifier rewrites it (items set, moved and
// removed, the region grown when they no longer fit) and the parent
// locator item as the parser reads it.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/metadata_table.h"
#include "vhdx/metadata/parent_locator.h"
#include "vhdx/metadata/parent_locator_writer.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/test_files.h"

namespace {

using namespace Vhdx;
using VhdxTest::CodeOf;
using VhdxTest::Raised;
namespace Items = WellKnownItems;

constexpr std::uint32_t kTableArea = 65536;
const Common::Guid kOther = VhdxTest::TestGuid(7);

std::string Le32(std::uint32_t v) {
  std::string s(4, '\0');
  StoreLe32(reinterpret_cast<std::uint8_t*>(s.data()), v);
  return s;
}
const std::uint8_t* U8(const std::string& s) { return reinterpret_cast<const std::uint8_t*>(s.data()); }
// The engine's writer, whose items the parser must read back.
std::string EncodeParentLocator(const ParentLocatorEntryList& entries) {
  const std::vector<std::uint8_t> item = Vhdx::EncodeParentLocator(entries);
  return std::string(item.begin(), item.end());
}

struct Item {
  Common::Guid id;
  std::uint32_t flags;
  std::string data;
  std::uint32_t offset = 0;           // 0: behind the previous item
  std::uint32_t length = UINT32_MAX;  // UINT32_MAX: the data's
};

// A region of `size` bytes with the table of `items`; data from 64 KiB on.
std::string RegionImage(const std::vector<Item>& items, std::uint32_t size = 0x20000) {
  std::string bytes(size, '\0');
  auto* p = reinterpret_cast<std::uint8_t*>(bytes.data());
  std::memcpy(p, "metadata", 8);
  StoreLe16(p + 10, static_cast<std::uint16_t>(items.size()));
  std::uint32_t next = kTableArea;
  for (std::size_t i = 0; i < items.size() && 64 + 32 * i <= size; ++i) {
    const Item& item = items[i];
    const std::uint32_t at = item.offset ? item.offset : next;
    StoreGuid(p + 32 + 32 * i, item.id);
    StoreLe32(p + 48 + 32 * i, at);
    StoreLe32(p + 52 + 32 * i, item.length == UINT32_MAX ? item.data.size() : item.length);
    StoreLe32(p + 56 + 32 * i, item.flags);
    if (at + item.data.size() <= size) bytes.replace(at, item.data.size(), item.data);
    next = at + static_cast<std::uint32_t>(item.data.size());
  }
  return bytes;
}

class MetadataTest : public VhdxTest::MemoryFileTest {
 protected:
  // An expandable region over the image that grows by exactly what it is asked.
  struct Monitor : ExpansionMonitor {
    std::vector<Area> moves;
    void OnExpanded(const Area&, const Area& to) override { moves.push_back(to); }
  };
  MetadataModifierImpl Modifier(const std::string& image, File& over) {
    raw.Load(image);
    return MetadataModifierImpl(std::make_unique<ExpandableFileRegionImpl>(
        over, Area{0, static_cast<std::uint32_t>(image.size())},
        std::make_shared<AtEndOfFileAllocator>(over, 0, 0), monitor));
  }
  // The table and data of the region where it lies now.
  std::vector<std::pair<MetadataTableEntry, std::string>> Stored() {
    const Area at = monitor->moves.empty() ? Area{0, static_cast<std::uint32_t>(raw.Store->Size())}
                                           : monitor->moves.back();
    ReadOnlyFileRegionImpl region(file, at);
    std::vector<std::pair<MetadataTableEntry, std::string>> out;
    for (const auto& e : MetadataTable::Read(region).Entries)
      out.emplace_back(e, raw.Bytes(at.Offset + e.Offset, e.Length));
    return out;
  }

  std::shared_ptr<Monitor> monitor = std::make_shared<Monitor>();
};

TEST_F(MetadataTest, ParentLocatorsParseWithinTheirItemOnly) {
  // Entries at 20 and 32, strings from 44 on; the last string ends the item.
  const std::string good = EncodeParentLocator({{u"key", u"value"}, {u"k2", u"v2"}});
  auto with = [&](std::size_t at, const std::string& bytes) {
    std::string s = good;
    return s.replace(at, bytes.size(), bytes);
  };
  struct Case {
    const char* name;
    std::string item;
    std::uint32_t code;
    ParentLocatorEntryList entries;
  };
  const Case cases[] = {
      {"two entries", good, 0, {{u"key", u"value"}, {u"k2", u"v2"}}},
      {"empty", EncodeParentLocator({}), 0, {}},
      {"short header", EncodeParentLocator({}).substr(0, 19), 0x3C0014, {}},
      {"other type", with(15, "\x14"), 0x3C0013, {}},
      {"odd key length", with(28, "\5"), 0, {{u"ke", u"value"}, {u"k2", u"v2"}}},
      {"last string one byte beyond", good.substr(0, good.size() - 1), 0x3C0014, {}},
      {"entry table beyond", with(18, "\5"), 0x3C0014, {}},
      {"count whose table end wraps", with(18, std::string("\x55\x15", 2)), 0x3C0014, {}},
      {"key offset that wraps", with(20, Le32(0xFFFFFFFF)), 0x3C0014, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ParentLocatorMetadataConsumerImpl consumer;
    consumer.Consume(Items::kParentLocator, U8(good), good.size());
    // The consumer keeps what it had when a locator fails.
    EXPECT_EQ(CodeOf([&] { consumer.Consume(Items::kParentLocator, U8(c.item), c.item.size()); }),
              c.code);
    EXPECT_EQ(consumer.GetEntries(), c.code ? cases[0].entries : c.entries);
  }
  const std::string other = with(0, "\1");
  EXPECT_EQ(
      Raised([&] { ParentLocatorParser(U8(other), 20).Parse(); }).GetText(),
      u"The parent locator of type 'B04AEF01-D19E-4A81-B789-25B8E9445913' is not recognized.");
}

TEST_F(MetadataTest, SetGrowsInPlaceMovesOrExpandsAndRemoveShiftsTheEntriesDown) {
  auto modifier =
      Modifier(RegionImage({{kOther, 0, "aaaaaaaa"}, {kOther, 1, "bbbbbbbb", kTableArea + 16}},
                           kTableArea + 32),
               logged);
  auto set = [&](const MetadataDescriptor& d, const std::string& data) {
    modifier.Set(d, U8(data), data.size());
  };
  set({kOther, 2}, std::string(16, 'A'));  // room behind it: stays, takes the new flags
  EXPECT_EQ(logged.Log, (std::vector<std::string>{"W 65536 16", "W 0 32", "W 32 64"}));
  // The user item behind: it moves, into the 8 bytes left at the end and 16
  // more, as the region grows by exactly the 24 asked for.
  set({kOther, 0}, std::string(24, 'A'));
  ASSERT_EQ(monitor->moves.size(), 1u);
  EXPECT_EQ(monitor->moves[0].Size, kTableArea + 32 + 24);
  set({kOther, 5}, "B");  // the user item shrinks in place
  const std::string other(16, 'X');
  set({VhdxTest::TestGuid(8), 0}, other);  // the room the move left is free again
  const std::vector<std::pair<MetadataTableEntry, std::string>> expected = {
      {{kOther, kTableArea + 24, 24, 0, 0}, std::string(24, 'A')},
      {{kOther, kTableArea + 16, 1, 5, 0}, "B"},
      {{VhdxTest::TestGuid(8), kTableArea, 16, 0, 0}, other}};
  EXPECT_EQ(Stored(), expected);
  EXPECT_EQ(monitor->moves.size(), 1u);

  const Area at = monitor->moves[0];
  const std::string before = raw.Bytes(at.Offset, at.Size);
  modifier.Remove({VhdxTest::TestGuid(9), 0});
  EXPECT_EQ(raw.Bytes(at.Offset, at.Size), before);
  modifier.Remove({kOther, 7});  // the user item, whatever its other flags
  // The last entry moved down; its old copy, stale now, and all data stay.
  EXPECT_EQ(raw.Bytes(at.Offset, at.Size), before.substr(0, 10) + '\2' + before.substr(11, 53) +
                                               before.substr(96, 32) + before.substr(96));

  // One byte is as good a size as any for a new item.
  set({VhdxTest::TestGuid(6), 0}, "C");
  EXPECT_EQ(Stored().back(), (std::pair<MetadataTableEntry, std::string>{
                                {VhdxTest::TestGuid(6), kTableArea + 16, 1, 0, 0}, "C"}));  // where "B" was

  // An item that a read refuses is refused here too, before any write.
  logged.Log.clear();
  auto hostile = Modifier(RegionImage({{kOther, 0, "", 0x1FFFF, 3}}), logged);
  EXPECT_EQ(CodeOf([&] { hostile.Set({VhdxTest::TestGuid(8), 0}, U8("x"), 1); }), 0x3C0036u);
  EXPECT_TRUE(logged.Log.empty());
}

}  // namespace
