#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "vellumrig/error_text.h"
#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/metadata_reader.h"
#include "vhdx/metadata/metadata_table.h"
#include "vhdx/metadata/metadata_value_consumer.h"
#include "vhdx/metadata/parent_locator.h"
#include "vhdx/metadata/parent_locator_writer.h"
#include "vhdx/differencing_child.h"
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
std::string Le64(std::uint64_t v) { return Le32(static_cast<std::uint32_t>(v)) + Le32(v >> 32); }
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

// Takes what `accept` says, and logs it.
struct Recorder : SelectiveMetadataConsumer {
  std::function<bool(const MetadataDescriptor&)> accept = [](auto&) { return true; };
  std::vector<std::pair<MetadataDescriptor, std::string>> got;
  bool CanConsume(const MetadataDescriptor& d) const override { return accept(d); }
  void Consume(const MetadataDescriptor& d, const std::uint8_t* data, std::uint32_t size) override {
    got.emplace_back(d, std::string(reinterpret_cast<const char*>(data), size));
  }
};

template <class T>
using Value = std::shared_ptr<SingleValueMetadataConsumer<T>>;
template <class T>
Value<T> MakeValue(const Common::Guid& id) {
  return std::make_shared<SingleValueMetadataConsumer<T>>(id, false);
}

// The consumers of an open, added as the disk file adds them.
struct OpenTree {
  Value<VirtualDiskLogicalSectorSize> logical =
      MakeValue<VirtualDiskLogicalSectorSize>(Format::kLogicalSectorSizeItem);
  Value<VirtualDiskPhysicalSectorSize> physical =
      MakeValue<VirtualDiskPhysicalSectorSize>(Format::kPhysicalSectorSizeItem);
  Value<FileParameters> parameters = MakeValue<FileParameters>(Format::kFileParametersItem);
  Value<VirtualDiskSize> size = MakeValue<VirtualDiskSize>(Format::kVirtualDiskSizeItem);
  std::shared_ptr<ParentLocatorMetadataConsumerImpl> locator =
      std::make_shared<ParentLocatorMetadataConsumerImpl>();
  DispatchingComposite root;

  OpenTree(SelectiveMetadataConsumer& caller, bool ignore)
      : root(ignore ? std::unique_ptr<UnhandledMetadataPolicy>(new IgnoreUnhandledMetadata)
                    : std::make_unique<ThrowOnRequiredUnhandledMetadata>()) {
    for (std::shared_ptr<SelectiveMetadataConsumer> c : std::initializer_list<std::shared_ptr<SelectiveMetadataConsumer>>{
             logical, physical, parameters, size, locator})
      root.Add(std::make_shared<OnceMetadataConsumer>(c));
    root.Add(std::make_shared<MetadataConsumerDelegate>(caller));
  }
};

class MetadataTest : public VhdxTest::MemoryFileTest {
 protected:
  // The region is the whole image unless `regionSize` says less.
  void Read(const std::string& image, MetadataConsumer& consumer, std::uint32_t regionSize = 0) {
    raw.Load(image);
    const Area region{0, regionSize ? regionSize : static_cast<std::uint32_t>(image.size())};
    MetadataReaderImpl(std::make_unique<ReadOnlyFileRegionImpl>(file, region)).Read(consumer);
  }
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

TEST_F(MetadataTest, ItemsReachTheirConsumersAndUnknownOnesTheCallerOrThePolicy) {
  const std::string locator = EncodeParentLocator({{u"k", u"v"}});
  const std::vector<Item> all = {{Format::kLogicalSectorSizeItem, 6, Le32(4096)},
                                 {Format::kPhysicalSectorSizeItem, 6, Le32(512)},
                                 {Format::kFileParametersItem, 4, Le32(1 << 20) + Le32(3)},
                                 {Format::kVirtualDiskSizeItem, 6, Le64(1ull << 40)},
                                 {Format::kParentLocatorItem, 4, locator},
                                 {kOther, 1, ""},
                                 {Format::kPage83DataItem, 6, std::string(16, 'p')}};
  Recorder caller;
  // Every member that accepts an item gets it.
  caller.accept = [](auto& d) { return d.IsUser() || d.Id == Format::kLogicalSectorSizeItem; };
  OpenTree tree(caller, true);
  Read(RegionImage(all), tree.root);
  EXPECT_EQ(tree.logical->GetValue()->Bytes, 4096u);
  EXPECT_EQ(tree.physical->GetValue()->Bytes, 512u);
  EXPECT_EQ(tree.parameters->GetValue()->BlockSize, 1u << 20);
  EXPECT_TRUE(tree.parameters->GetValue()->HasParent() &&
              tree.parameters->GetValue()->LeaveBlocksAllocated());
  EXPECT_EQ(tree.size->GetValue()->Bytes, 1ull << 40);
  EXPECT_EQ(tree.locator->GetEntries(), (ParentLocatorEntryList{{u"k", u"v"}}));
  ASSERT_EQ(caller.got.size(), 2u);
  EXPECT_EQ(caller.got[0],
            std::make_pair(MetadataDescriptor{Format::kLogicalSectorSizeItem, 6}, Le32(4096)));
  // An empty item arrives with size 0.
  EXPECT_EQ(caller.got[1], std::make_pair(MetadataDescriptor{kOther, 1}, std::string()));

  enum Caller { kNobody, kUsers, kChecking };
  struct Case {
    const char* name;
    std::vector<Item> items;
    bool ignore;
    Caller caller;
    std::uint32_t code;
  };
  const Item unknown{kOther, 4, "x"}, userParameters{Format::kFileParametersItem, 5, Le64(1)},
      page83{Format::kPage83DataItem, 6, std::string(16, 'p')},
      logical{Format::kLogicalSectorSizeItem, 6, Le32(512)};
  const Case cases[] = {
      {"unknown required", {unknown}, false, kNobody, 0x3C0027},
      {"unknown required ignored", {unknown}, true, kNobody, 0},
      {"unknown optional", {{kOther, 2, "x"}}, false, kNobody, 0},
      {"short file parameters", {{Format::kFileParametersItem, 4, "1234"}}, true, kUsers, 0x3C0016},
      {"two logical sector sizes", {logical, logical}, true, kUsers, 0x3C0026},
      {"user file parameters taken by the caller", {userParameters}, false, kUsers, 0},
      {"user file parameters left to the policy", {userParameters}, false, kNobody, 0x3C0027},
      {"page 83 unchecked", {page83}, false, kNobody, 0x3C0027},
      {"page 83 checked", {page83}, false, kChecking, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Recorder users;
    users.accept = [&](const MetadataDescriptor& d) { return c.caller == kUsers && d.IsUser(); };
    OnlyCheckingMetadataConsumer checking;
    OpenTree tree(c.caller == kChecking ? static_cast<SelectiveMetadataConsumer&>(checking) : users,
                  c.ignore);
    EXPECT_EQ(CodeOf([&] { Read(RegionImage(c.items), tree.root); }), c.code);
    EXPECT_FALSE(tree.parameters->GetValue() && c.items[0].flags == 5);
  }
  // The messages name the item.
  OpenTree strict(caller, false);
  EXPECT_EQ(Raised([&] { Read(RegionImage({unknown}), strict.root); }).GetText(),
            u"Metadata with ID '" + Common::FromUtf8(Common::GuidToString(kOther)) +
                u"' and flags 4 are required to be recognized.");
  EXPECT_EQ(Raised([&] {
              Read(RegionImage({logical, logical}), strict.root);
            }).GetText(),
            u"Multiple metadata entries with ID '8141BF1D-A96F-4709-BA47-F233A8FAAB5F' for a "
            u"value that allows only one metadata entry are present in the file.");
}

TEST_F(MetadataTest, HostileTablesAndItemsAreRefusedWithoutReadingBeyondThem) {
  struct Case {
    const char* name;
    std::string image;
    std::uint32_t code;
    std::size_t delivered;
    std::uint32_t region = 0;
  };
  std::string badSignature = RegionImage({{kOther, 0, "a"}});
  badSignature[3] ^= 0x10;
  std::string bigCount = RegionImage({});
  StoreLe16(reinterpret_cast<std::uint8_t*>(bigCount.data()) + 10, 2048);
  const Case cases[] = {
      {"signature", badSignature, 0x3C0012, 0},
      {"count beyond the table area", bigCount, 0x3C0036, 0},
      {"count beyond the region", RegionImage({{kOther, 0, "a", 40}, {kOther, 0, "b", 41}}, 95),
       0x3C0036, 0},
      {"count at the region's end", RegionImage({{kOther, 0, "a", 64}}, 65), 0, 1},
      {"item ends at the region's end", RegionImage({{kOther, 0, "a"}, {kOther, 0, "bc", 0x1FFFE}}),
       0, 2},
      // Items get the region's own allowance of one byte.
      {"item one byte beyond", RegionImage({{kOther, 0, "a"}, {kOther, 0, "bc", 0x1FFFF}}, 0x20001), 0, 2,
       0x20000},
      {"item two bytes beyond", RegionImage({{kOther, 0, "a"}, {kOther, 0, "bcd", 0x1FFFF}}, 0x20002), 0x3C0036, 1,
       0x20000},
      {"offset that wraps", RegionImage({{kOther, 0, "a"}, {kOther, 0, "", 0xFFFFFFF8, 16}}),
       0x3C0036, 1},
      {"huge length", RegionImage({{kOther, 0, "", 0, 0xFFFFFFF0}}), 0x3C0036, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Recorder all;
    EXPECT_EQ(CodeOf([&] { Read(c.image, all, c.region); }), c.code);
    EXPECT_EQ(all.got.size(), c.delivered);
  }
}

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

TEST_F(MetadataTest, FiltersHideItemsFromReadersByIdentity) {
  const std::string image = RegionImage({{Format::kVirtualDiskSizeItem, 6, Le64(1)},
                                         {kOther, 0, "x"},
                                         {Format::kLogicalSectorSizeItem, 2, Le32(512)}});
  Recorder seen;
  FilteringMetadataConsumer hiding(seen, Items::DiskItems());  // by identity, not by all flags
  Read(image, hiding);
  ASSERT_EQ(seen.got.size(), 1u);
  EXPECT_EQ(seen.got[0].first.Id, kOther);
}

}  // namespace
