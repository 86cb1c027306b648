// The BAT's arithmetic, the collectors that route its entries by state and
// turn changed bytes of the BAT and of data blocks into what they touch,
// and the reads of the virtual disk through it: the block readers chosen by
// state and the request bitmap as to-do list. Whole disks made by qemu-img
// are compared with qemu's own conversion in qemu_test.cc.
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/site.h"
#include "vhd/data_block_info.h"
#include "vhd/recorder.h"
#include "vhdx/bat/bat_collectors.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/blocks/bat_disk_reader.h"
#include "vhdx/blocks/change_tracking_bitmap.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/format/errors.h"
#include "vhdx/test_files.h"

namespace {

using Vhd::DiskArea;
using VhdxTest::CodeOf;
using namespace Vhdx;

using Vhd::Testing::Recorder;

struct EntryRecorder : BatEntryCollector {
  std::vector<std::uint64_t> indices;
  bool Collect(std::uint64_t index, const BatEntry&) override {
    indices.push_back(index);
    return true;
  }
};

BatEntry Entry(std::uint32_t state, std::uint64_t offsetMb) { return BatEntry(offsetMb << 20 | state); }

TEST(BatTraitsTest, GeometryRefusesWhatWouldBreakTheArithmetic) {
  struct Case {
    std::uint32_t block, sector;
    std::uint64_t virtualSize;
    std::uint32_t code, ratio;
    std::uint64_t entries;
  };
  const Case cases[] = {
      {0, 512, 1, 0x3C0003, 0, 0}, {0x400000, 0, 1, 0x3C0003, 0, 0},
      {1000000, 512, 1, 0x3C0003, 0, 0},   // not whole sectors
      {0x300000, 512, 1, 0x3C0003, 0, 0},  // blocks do not tile a chunk
      {0x1000000, 1, 1, 0x3C0003, 0, 0},   // a chunk ratio of 0
      {0x80000, 512, 1, 0x3C0003, 0, 0},   // below the format's smallest block
      {0x20000000, 4096, 1, 0x3C0003, 0, 0},  // above its largest
      {0x10000000, 4096, 1, 0, 128, 1},
      {0x400000, 512, 0, 0, 1024, 0},      // no blocks, no entries
      {0x400000, 512, 1024ull << 22, 0, 1024, 1024},  // one chunk: no bitmap entry counted
      {0x400000, 512, (1024ull << 22) + 1, 0, 1024, 1026}, {0x400000, 4096, 0x400000, 0, 8192, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.block << "/" << c.sector);
    const Common::Error error = VhdxTest::Raised([&] {
      const BlockGeometry g = BlockGeometry::Make(c.block, c.sector, c.virtualSize);
      EXPECT_EQ(g.ChunkRatio, c.ratio);
      EXPECT_EQ(g.BatEntryCount, c.entries);
      EXPECT_EQ(std::uint64_t{g.ChunkRatio} * g.SectorsPerBlock, kSectorsPerChunk);
    });
    EXPECT_EQ(error.Code(), c.code);
    EXPECT_EQ(error.GetText().find(u"do not fit") != std::u16string::npos, c.code != 0);
  }
  EXPECT_EQ(CodeOf([] { ChunkTraits(0, 8); }), 0x3C0000u);
  EXPECT_EQ(CodeOf([] { ParametrizedBatIndexTraits{0}; }), 0x3C0000u);
}

TEST(ChunkTraitsTest, ChunkRangesAndBlockPlaces) {
  // A range that ends on a chunk boundary counts the next chunk as well;
  // the BAT slice cache is keyed by this count, so it is pinned.
  struct Case { std::uint64_t first, count, chunk, chunks; };
  for (const Case& c : {Case{0, 0x800000, 0, 2}, Case{0, 0x7FFFFF, 0, 1}, Case{9, 0, 0, 0},
                        Case{0x7FFFFF, 2, 0, 2}, Case{0x1800000, 1, 3, 1}})
    EXPECT_EQ(ChunkTraits::GetChunkRange(c.first, c.count), (IndexRange{c.chunk, c.chunks})) << c.first;
  const ChunkTraits traits(1024, 8192);
  EXPECT_EQ(traits.GetChunkOfBlock(1025), 1u);
  EXPECT_EQ(traits.GetBlockArea(1025), (DiskArea{8192, 8192}));
  EXPECT_EQ(BlockSizeAwareDataBlockTraits(8).GetArea(3), (DiskArea{24, 8}));
}

TEST(BatTraitsTest, RegionBytesMapToEveryEntryTheyTouchUpToTheLimit) {
  const LimitedBatRegionAreaToIndexMap map(10);
  struct Case { Area area; IndexRange indices; };
  for (const Case& c : {Case{{0, 0}, {0, 0}}, Case{{40, 0}, {0, 0}}, Case{{4, 8}, {0, 2}}, Case{{8, 8}, {1, 1}},
                        Case{{76, 100}, {9, 1}}, Case{{200, 8}, {10, 0}}})
    EXPECT_EQ(map.Map(c.area), c.indices) << c.area.Offset << "+" << c.area.Size;
}

// A BAT of ratio 2 (payload, payload, bitmap, ...) in a file region.
class BatCollectorTest : public VhdxTest::MemoryFileTest {
 protected:
  BatCollectorTest() {
    const BatEntry entries[] = {Entry(6, 1), Entry(7, 2), Entry(6, 9), Entry(0, 0),
                                Entry(5, 0), Entry(6, 9), Entry(2, 0), Entry(7, 3)};
    raw.Load(std::string(0x100, '\0') + std::string(reinterpret_cast<const char*>(entries), sizeof entries));
  }
  std::shared_ptr<BatEntryEnumerator> Enumerator() {
    return std::make_shared<ArrayEntryEnumerator<BatEntry>>(std::make_shared<FileRegionBatEntryArray>(region));
  }

  ReadOnlyFileRegionImpl region{file, {0x100, 64}};
  std::shared_ptr<BatIndexTraits> traits = std::make_shared<ParametrizedBatIndexTraits>(2);
};

TEST_F(BatCollectorTest, EntriesAreRoutedByStateAndUnknownStatesHoldNothing) {
  auto present = std::make_shared<EntryRecorder>(), partial = std::make_shared<EntryRecorder>();
  DispatchingBatEntryCollector dispatch(traits, present, partial);
  EXPECT_TRUE(Enumerator()->Enumerate(0, 8, dispatch));
  EXPECT_EQ(present->indices, (std::vector<std::uint64_t>{0, 6}));  // 2 and 5 are bitmaps, 4 is state 5
  EXPECT_EQ(partial->indices, (std::vector<std::uint64_t>{1, 7}));

  auto areas = std::make_shared<Recorder<DiskArea>>();
  EmptyBatEntryToDiskAreaCollector empty(traits, 8, areas);
  EXPECT_TRUE(Enumerator()->Enumerate(0, 8, empty));
  EXPECT_EQ(areas->values, (std::vector<DiskArea>{{16, 8}, {32, 8}}));  // blocks 2 and 4
}

TEST(DataBlockMapTest, ChangedBytesTranslateToTouchedSectorsOfEachBlock) {
  auto map = std::make_shared<Vhd::RegionIndexedCollectingDataBlockInfoMap>(0x100000);
  map->Collect({0x300000, 2048, true});
  map->Collect({0x100000, 0, false});
  auto sectors = std::make_shared<Recorder<DiskArea>>();
  Vhd::DataBlocksRegionCollector collector(map, 0x100000, 512, sectors);
  EXPECT_TRUE(collector.Collect({0x100201, 1}));
  EXPECT_TRUE(collector.Collect({0x1FFFFF, 0x100002}));  // last byte of one, first of the next
  EXPECT_TRUE(collector.Collect({0x200000, 0x100000}));   // no block there
  EXPECT_EQ(sectors->values, (std::vector<DiskArea>{{1, 1}, {2047, 1}, {2048, 1}}));
  sectors->stopAfter = 0;
  EXPECT_FALSE(collector.Collect({0x100000, 0x300000}));
  EXPECT_EQ(sectors->values.size(), 4u);
}

struct CountingObserver : Observer {
  explicit CountingObserver(bool r = false) : refuse(r) {}
  void Notify() override {
    ++count;
    if (refuse) throw Common::MessageError(VR_SITE, kInternalError);
  }
  int count = 0;
  bool refuse;
};

// A change through a view of a view tells every level before it happens; a
// refusal at any level stops it.
TEST(ChangeTrackingBitmapTest, ViewsReportEveryLevelBeforeTheChange) {
  auto chunk = std::make_shared<ChangeTrackingBitmap>(Vhd::CreateBitmap(64, false));
  auto block = std::dynamic_pointer_cast<ChangeTrackingBitmap>(chunk->GetSubBitmap(16, 16));
  const auto chunkObserver = std::make_shared<CountingObserver>(), blockObserver = std::make_shared<CountingObserver>();
  chunk->Add(chunkObserver);
  block->Add(blockObserver);
  const auto sectors = block->GetSubBitmap(8, 8);
  sectors->Set(1, true);
  EXPECT_TRUE(chunk->Get(25));
  EXPECT_EQ(chunkObserver->count, 1);
  EXPECT_EQ(blockObserver->count, 1);
  chunk->Add(std::make_shared<CountingObserver>(true));
  EXPECT_EQ(CodeOf([&] { sectors->SetAll(true); }), 0x3C0000u);
  EXPECT_FALSE(chunk->Get(24));
}

using Reads = std::vector<std::pair<std::uint64_t, std::uint64_t>>;
constexpr std::uint64_t kMiB = Format::kMiB;

struct ReadLoggingFile : FileDecorator {
  using FileDecorator::FileDecorator;
  Reads reads;
  void Read(std::uint64_t offset, std::size_t size, void* buffer) override {
    reads.emplace_back(offset, size);
    FileDecorator::Read(offset, size, buffer);
  }
};

// 1 MiB blocks of 512-byte sectors (ratio 4096), two chunks. The BAT is at
// 1 MiB; the payload block at n MiB is filled with the byte n. Block 0 is
// present at 2 MiB, block 2 zero, block 3 partial at 3 MiB, block 4 in state
// 5; chunk 0's bitmap is at 4 MiB, where block 3 holds sectors 0-7 and 16-23.
class BlockReadTest : public VhdxTest::MemoryFileTest {
 protected:
  static constexpr std::uint64_t kRatio = 4096, kSectorsPerBlock = 2048;

  BlockReadTest() : image(7 * kMiB, '\0') {
    for (std::uint64_t mb = 2; mb < 7; ++mb) std::memset(image.data() + mb * kMiB, int(mb), kMiB);
    SetEntry(0, PAYLOAD_BLOCK_FULLY_PRESENT, 2);
    SetEntry(2, PAYLOAD_BLOCK_ZERO, 0);
    SetEntry(3, PAYLOAD_BLOCK_PARTIALLY_PRESENT, 3);
    SetEntry(4, 5, 0);
    SetEntry(kRatio, SB_BLOCK_PRESENT, 4);
    std::memset(image.data() + 4 * kMiB, 0, kMiB);
    image[4 * kMiB + 3 * kSectorsPerBlock / 8] = image[4 * kMiB + 3 * kSectorsPerBlock / 8 + 2] = '\xFF';
  }
  void SetEntry(std::uint64_t index, std::uint32_t state, std::uint64_t mb) {
    BatEntry entry;
    entry.SetState(state);
    entry.SetFileOffsetMb(mb);
    StoreLe64(reinterpret_cast<std::uint8_t*>(image.data()) + kMiB + 8 * index, entry.Raw());
  }
  // Reads `count` sectors from `first` into a buffer of 0xEE; bits of the
  // sectors in `skip` are cleared beforehand.
  void Read(bool differencing, std::uint64_t first, std::uint64_t count,
            std::pair<std::uint64_t, std::uint64_t> skip = {0, 0}) {
    raw.Load(image);
    buffer.assign(count * 512, '\xEE');
    wanted = Vhd::CreateBitmap(count, true);
    if (skip.second) wanted->Set(skip.first, skip.second, false);
    BatDiskReader(reading, loader, geometry, differencing).Read(first, *wanted, buffer.data());
  }
  // The last byte of sector i of the last request.
  char Byte(std::uint64_t sector) const { return buffer[sector * 512 + 511]; }

  std::string image;
  ReadLoggingFile reading{file};
  BlockGeometry geometry = BlockGeometry::Make(kMiB, 512, 2 * kRatio * kMiB);
  BatAreaLoader loader{reading, {kMiB, kMiB}, kRatio, geometry.BatEntryCount};
  std::string buffer;
  std::shared_ptr<Vhd::DataOwningBitmap> wanted;
};

TEST_F(BlockReadTest, ADifferencingFileLeavesWhatItLacksToTheParent) {
  Read(true, 0, 4 * kSectorsPerBlock);
  for (std::uint64_t i = 0; i < 4 * kSectorsPerBlock; ++i) {
    const std::uint64_t block = i / kSectorsPerBlock, s = i % kSectorsPerBlock;
    const bool own = block == 0 || block == 2 || (block == 3 && (s < 8 || (s >= 16 && s < 24)));
    ASSERT_EQ(Byte(i), own ? char(block == 0 ? 2 : block == 3 ? 3 : 0) : '\xEE') << i;
    ASSERT_EQ(wanted->Get(i), !own) << i;
  }
  // One read per present run, and of the chunk's bitmap only block 3's bits.
  EXPECT_EQ(reading.reads, (Reads{{kMiB, 8 * (kRatio + 1)}, {2 * kMiB, kMiB},
                                 {4 * kMiB + 3 * kSectorsPerBlock / 8, kSectorsPerBlock / 8},
                                 {3 * kMiB, 8 * 512}, {3 * kMiB + 16 * 512, 8 * 512}}));
}

TEST_F(BlockReadTest, BitsThatMisleadTheSearchStillGetTheirRunsRead) {
  // 20 bits with 3 to 12 clear: the search for a set bit from 3 names the
  // clear bit 12 (a quirk of ranges that do not end on a byte). It must
  // neither loop nor read that sector.
  Read(false, 0, 20, {3, 10});
  EXPECT_EQ(wanted->Find(true), 20u);
  for (std::uint64_t i = 0; i < 20; ++i) EXPECT_EQ(Byte(i), i >= 3 && i < 13 ? '\xEE' : 2) << i;
  EXPECT_EQ(reading.reads, (Reads{{kMiB, 8 * (kRatio + 1)}, {2 * kMiB, 3 * 512}, {2 * kMiB + 13 * 512, 7 * 512}}));
}

// A refusal names the state only when its sectors are wanted; a request past
// the disk reads nothing, and one past the file stops at the file's error
// with what was read before marked so (`left`: the first sector still wanted).
TEST_F(BlockReadTest, StatesThatCannotBeReadAreRefusedOnlyWhenTheirSectorsAreWanted) {
  struct Case {
    const char* name;
    bool differencing;
    std::uint32_t bitmapState;
    std::uint64_t first, count;
    std::pair<std::uint64_t, std::uint64_t> skip;
    std::uint32_t code;
    std::uint64_t left;
  };
  const std::uint64_t b3 = 3 * kSectorsPerBlock, b4 = 4 * kSectorsPerBlock, end = geometry.SectorCount;
  const Case cases[] = {
      {"partial without parent", false, SB_BLOCK_PRESENT, b3, 1, {}, 0x3C0019, 0},
      {"partial, bitmap absent", true, SB_BLOCK_NOT_PRESENT, b3, 1, {}, 0x3C001B, 0},
      {"partial, bitmap state 5", true, 5, b3, 1, {}, 0x3C001A, 0},
      {"present, bitmap absent", true, SB_BLOCK_NOT_PRESENT, 0, 1, {}, 0, 1},
      {"state 5", false, SB_BLOCK_PRESENT, b4 + 9, 1, {}, 0x3C001A, 0},
      {"state 5 not wanted", true, SB_BLOCK_PRESENT, b4 - 1, 3, {1, 2}, 0, 0},  // 0: the parent's
      {"up to the last sector", false, SB_BLOCK_PRESENT, end - 5, 5, {}, 0, 5},
      {"one sector more", false, SB_BLOCK_PRESENT, end - 5, 6, {}, 0x3C0008, 0},
      {"nothing wanted, past the end", false, SB_BLOCK_PRESENT, end, 0, {}, 0x3C0008, 0},
      {"block 1 beyond the file", false, SB_BLOCK_PRESENT, kSectorsPerBlock - 2, 4, {}, kEndOfFile.Code, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    SetEntry(kRatio, c.bitmapState, 4);
    if (&c == std::end(cases) - 1) SetEntry(1, PAYLOAD_BLOCK_FULLY_PRESENT, 1000);
    loader.SetLocation({kMiB, kMiB});  // the image changed under the cached slice
    reading.reads.clear();
    EXPECT_EQ(CodeOf([&] { Read(c.differencing, c.first, c.count, c.skip); }), c.code);
    EXPECT_EQ(wanted->Find(true), c.left);
    EXPECT_TRUE(c.code != 0x3C0008 || reading.reads.empty());
  }
}

TEST_F(BlockReadTest, ARequestAcrossAChunkBoundaryReadsEachChunkFromItsOwnEntries) {
  SetEntry(kRatio - 1, PAYLOAD_BLOCK_FULLY_PRESENT, 5);  // last block of chunk 0
  SetEntry(kRatio + 1, PAYLOAD_BLOCK_FULLY_PRESENT, 6);  // first block of chunk 1
  for (int pass = 0; pass < 2; ++pass) {
    reading.reads.clear();
    Read(false, kSectorsPerChunk - 4, 8);
    EXPECT_EQ(buffer[511], 5);
    EXPECT_EQ(buffer[8 * 512 - 1], 6);
  }
  // The second request found its BAT slice loaded.
  EXPECT_EQ(reading.reads, (Reads{{5 * kMiB + kMiB - 4 * 512, 4 * 512}, {6 * kMiB, 4 * 512}}));
}

}  // namespace
