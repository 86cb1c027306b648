// The whole disk: creation by the recipe, block writes and the order of
// their file changes, reads through a chain of parents, parent lookup and
// its failures, deletion of chains; the recipe's layouts and refusals; and
// one container file: what its open requires of the metadata, how the file
// type is derived, and the metadata operations with their two filter levels
// and the growth of the metadata region. Real files in a scratch folder,
// or a file in memory.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "vellumrig/tracker.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/disk/container_recipe.h"
#include "vhdx/disk/disk_deleter.h"
#include "vhdx/disk/disk_file_impl.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/metadata/well_known_items.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::Raised;
namespace Format = Vhdx::Format;

constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlock = 0x400000;
constexpr std::uint64_t kBlockSectors = kBlock / kSector;

using VhdxTest::Pattern;

class DiskTest : public VhdxTest::DiskFixture {
 protected:
  // Lays down `name` by `recipe`.
  void Make(const std::string& name, const Vhdx::ContainerRecipe& recipe) {
    std::unique_ptr<rio_file> host = Folder()->CreateFile(Common::FromUtf8(name), 0, 0);
    ASSERT_TRUE(host);
    Vhdx::WriteableFile file(*host);
    Vhdx::WriteContainer(file, recipe);
  }
};

// The recipe's layout, read back by the engine's own readers.
TEST_F(DiskTest, CreateLaysDownTheRecipe) {
  struct Case {
    std::uint64_t size;
    std::uint32_t sector;
    std::uint64_t fileSize, batLength;
  };
  for (const Case& c : {Case{0, 512, 0x300000, 0}, Case{4 << 20, 512, 0x400000, 0x100000},
                        Case{(10ull << 30) + 512, 512, 0x400000, 0x100000},
                        Case{64 << 20, 4096, 0x400000, 0x100000}}) {
    SCOPED_TRACE(c.size);
    CreateDisk("new.vhdx", c.size, c.sector);
    EXPECT_EQ(std::filesystem::file_size(dir.Join("new.vhdx")), c.fileSize);
    auto host = Folder()->OpenFile(u"new.vhdx", kOpenRead);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*host));
    const Vhdx::HeaderImages headers = Vhdx::ReadHeaderImages(file);
    EXPECT_EQ(headers[0], headers[1]);
    EXPECT_EQ(Vhdx::SequenceNumberOf(headers[0]), 0u);
    const Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(file);
    EXPECT_TRUE(header.LogGuid.IsZero());
    EXPECT_EQ(header.LogOffset, 0x100000u);
    const Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    ASSERT_EQ(regions.size(), 2u);
    EXPECT_EQ(regions[0], (Vhdx::RegionTableEntry{Format::kMetadataRegionGuid, 0x200000, 0x100000, 1}));
    EXPECT_EQ(regions[1], (Vhdx::RegionTableEntry{Format::kBatRegionGuid, 0x300000,
                                                  static_cast<std::uint32_t>(c.batLength), 1}));
    auto disk = Open("new.vhdx");
    EXPECT_EQ(disk->GetDiskParameters().VirtualSize, c.size);
    EXPECT_EQ(disk->GetDiskParameters().LogicalSectorSize, c.sector);
    EXPECT_EQ(disk->GetTop().GetFileType(), Vhdx::kDynamicFile);
    EXPECT_EQ(disk->GetTop().GetLayout().BlockSize, kBlock);
  }
  EXPECT_EQ(CodeOf([&] { Vhdx::Create(*Folder(), u"typed.vhdx", 0, {kBlock, kSector}); }), 0x100401u);
  EXPECT_FALSE(HostTest::Exists(dir.Join("typed.vhdx")));
  const Common::Error refused = Raised([&] { CreateDisk("missing/new.vhdx", kBlock); });
  EXPECT_EQ(refused.Code(), 0x3C0005u);
  EXPECT_TRUE(refused.Reason());
}

// What each kind of write changes in the file: new blocks at the aligned
// end, zeros around the written sectors, no BAT write for a block in place.
TEST_F(DiskTest, WritesAllocateAtTheEndAndRewriteInPlace) {
  CreateDisk("a.vhdx", 64 << 20);
  const std::uint64_t created = std::filesystem::file_size(dir.Join("a.vhdx"));
  Write("a.vhdx", 100, Pattern(1, 1));
  EXPECT_EQ(std::filesystem::file_size(dir.Join("a.vhdx")), created + kBlock);
  EXPECT_EQ(Read("a.vhdx", 0, 101), std::string(100 * kSector, '\0') + Pattern(1, 1));
  EXPECT_EQ(Open("a.vhdx")->GetTop().CountBlocks().FullyPresent, 1u);

  // In place: same size, and the BAT bytes stay as they were.
  const std::string bat = Bytes("a.vhdx").substr(0x300000, 4096);
  Write("a.vhdx", 5, Pattern(2, 9));
  EXPECT_EQ(std::filesystem::file_size(dir.Join("a.vhdx")), created + kBlock);
  EXPECT_EQ(Bytes("a.vhdx").substr(0x300000, 4096), bat);

  // Across two unallocated blocks: each at its own end, in order.
  Write("a.vhdx", 3 * kBlockSectors - 1, Pattern(2, 3));
  EXPECT_EQ(std::filesystem::file_size(dir.Join("a.vhdx")), created + 3 * kBlock);
  EXPECT_EQ(Read("a.vhdx", 3 * kBlockSectors - 2, 4), std::string(kSector, '\0') + Pattern(2, 3) +
                                                         std::string(kSector, '\0'));
  EXPECT_EQ(Read("a.vhdx", 0, 7).substr(5 * kSector), Pattern(2, 9));
  // Count 0 checks the sector and writes nothing; past the end is refused.
  auto disk = Open("a.vhdx", true);
  EXPECT_EQ(CodeOf([&] { disk->Write(64 << 11, 0, nullptr); }), 0x3C0008u);
  EXPECT_EQ(CodeOf([&] { disk->Write((64 << 11) - 1, 2, Pattern(2, 0).data()); }), 0x3C0008u);
  EXPECT_EQ(CodeOf([&] { disk->Write(0, 0, nullptr); }), 0u);
}

// A read-only open refuses writes at the file layer; GUIDs reported stay
// those of the open although the first write renews them on disk.
TEST_F(DiskTest, OpenModesAndWriteGuids) {
  CreateDisk("a.vhdx", 16 << 20);
  const std::string before = Bytes("a.vhdx");
  auto reader = Open("a.vhdx");
  EXPECT_EQ(CodeOf([&] { reader->Write(0, 1, Pattern(1, 0).data()); }), FileError::ReadOnly);
  reader.reset();
  EXPECT_EQ(Bytes("a.vhdx"), before);

  auto writer = Open("a.vhdx", true);
  const Vhdx::WriteGuids atOpen = writer->GetTop().GetWriteGuids();
  writer->Write(0, 1, Pattern(1, 0).data());
  EXPECT_EQ(writer->GetTop().GetWriteGuids().DataWriteGuid, atOpen.DataWriteGuid);
  writer.reset();
  const Vhdx::WriteGuids reopened = Open("a.vhdx")->GetTop().GetWriteGuids();
  EXPECT_FALSE(reopened.DataWriteGuid == atOpen.DataWriteGuid);
  EXPECT_FALSE(reopened.FileWriteGuid == atOpen.FileWriteGuid);
}

// A three-deep chain: each level shows through where those above hold
// nothing; a child longer than its parent reads zeros past the parent.
TEST_F(DiskTest, ChainsReadThroughParentsWithZerosPastAShorterParent) {
  CreateDisk("base.vhdx", 8 << 20);
  Write("base.vhdx", 0, Pattern(2 * kBlockSectors, 1));
  CreateChild("middle.vhdx", "base.vhdx", 12 << 20);
  Write("middle.vhdx", 10, Pattern(20, 2));                     // partial block 0
  Write("middle.vhdx", 2 * kBlockSectors + 3, Pattern(5, 4));    // past the base
  CreateChild("top.vhdx", "middle.vhdx", 16 << 20);
  Write("top.vhdx", 15, Pattern(10, 3));
  Write("top.vhdx", kBlockSectors, Pattern(kBlockSectors, 5));  // block 1 whole: fully present

  std::string expected = Pattern(2 * kBlockSectors, 1) + std::string(2 * kBlock, '\0');
  expected.replace(10 * kSector, 20 * kSector, Pattern(20, 2));
  expected.replace((2 * kBlockSectors + 3) * kSector, 5 * kSector, Pattern(5, 4));
  expected.replace(15 * kSector, 10 * kSector, Pattern(10, 3));
  expected.replace(kBlock, kBlock, Pattern(kBlockSectors, 5));
  EXPECT_TRUE(Read("top.vhdx", 0, 4 * kBlockSectors) == expected);

  {
    // The map says where each byte of that read comes from: data at a place
    // in one of the three files, or zeros. Laid out again, it is the read.
    auto top = Open("top.vhdx");
    std::string rebuilt;
    std::vector<Vhdx::SectorRun> runs;
    top->Map(0, 4 * kBlockSectors, [&](const Vhdx::SectorRun& run) {
      EXPECT_EQ(run.Sector * kSector, rebuilt.size());
      runs.push_back(run);
      if (run.Source != Vhdx::SectorSource::kData) {
        rebuilt.append(run.Count * kSector, '\0');
        return;
      }
      const std::string file = Common::ToUtf8(run.File->GetFullName());
      rebuilt += HostTest::ReadBytes(file).substr(run.FileOffset, run.Count * kSector);
    });
    EXPECT_TRUE(rebuilt == expected);
    // Neighbours of one source are merged: block 1 is one run of the top,
    // and what lies past the middle's end is one hole.
    const auto block1 = std::find_if(runs.begin(), runs.end(), [](const Vhdx::SectorRun& r) { return r.Sector == kBlockSectors; });
    ASSERT_NE(block1, runs.end());
    EXPECT_EQ(block1->Count, kBlockSectors);
    EXPECT_EQ(block1->File, &top->GetTop());
    EXPECT_EQ(runs.back().Source, Vhdx::SectorSource::kHole);
    EXPECT_EQ(runs.back().Sector + runs.back().Count, 4 * kBlockSectors);
    EXPECT_LE(runs.back().Sector, 3 * kBlockSectors);
    for (std::size_t i = 1; i < runs.size(); ++i)
      EXPECT_FALSE(runs[i].Source == runs[i - 1].Source && runs[i].Source != Vhdx::SectorSource::kData) << i;
  }
  {
    auto top = Open("top.vhdx");
    EXPECT_EQ(top->GetTop().GetFileType(), Vhdx::kDifferencingFile);
    ASSERT_NE(top->GetTop().GetParent(), nullptr);
    EXPECT_EQ(top->GetTop().GetParent()->GetFullName(), dir.Wide("middle.vhdx"));
    const Vhdx::BlockCensus census = top->GetTop().CountBlocks();
    EXPECT_EQ(census.PartiallyPresent, 1u);
    EXPECT_EQ(census.FullyPresent, 1u);
    EXPECT_EQ(census.SectorBitmaps, 1u);
  }
  // The base's blocks the middle wrote partly stay partly present after a
  // second write that does not complete them, and rise when it does.
  Write("middle.vhdx", 0, Pattern(kBlockSectors, 6));
  EXPECT_EQ(Open("middle.vhdx")->GetTop().CountBlocks().FullyPresent, 1u);
}

TEST_F(DiskTest, ParentLookupTriesEachPathAndChainsTheFailures) {
  CreateDisk("base.vhdx", 8 << 20);
  Write("base.vhdx", 0, Pattern(4, 1));
  std::filesystem::create_directory(dir.Join("sub"));
  // Relative paths resolve against the child's folder.
  CreateChild("sub/child.vhdx", "base.vhdx", 8 << 20,
              {{u"absolute_win32_path", u"../base.vhdx"}, {u"relative_path", u"nowhere/base.vhdx"},
               {u"volume_path", u"missing.vhdx"}});
  EXPECT_EQ(Read("sub/child.vhdx", 0, 4), Pattern(4, 1));

  CreateChild("lost.vhdx", "base.vhdx", 8 << 20,
              {{u"relative_path", u"a.vhdx"}, {u"volume_path", u"b/b.vhdx"}, {u"absolute_win32_path", u"c.vhdx"}});
  std::filesystem::remove(dir.Join("base.vhdx"));
  const Common::Error lost = Raised([&] { Open("lost.vhdx"); });
  EXPECT_EQ(lost.Code(), 0x3C0030u);
  std::vector<std::uint32_t> chain;
  for (Common::Error e = lost.Reason(); e; e = e.Reason())
    if ((e.Code() >> 16) == 0x3C) chain.push_back(e.Code());
  EXPECT_EQ(chain, (std::vector<std::uint32_t>{0x3C002C, 0x3C002C, 0x3C002C}));
  const std::u16string text = Common::FullText(lost);
  EXPECT_LT(text.find(u"a.vhdx"), text.find(u"b.vhdx"));
  EXPECT_LT(text.find(u"b.vhdx"), text.find(u"c.vhdx"));
}

TEST_F(DiskTest, BrokenLinkageAndLoopingChainsAreRefused) {
  CreateDisk("base.vhdx", 8 << 20);
  Write("base.vhdx", 0, Pattern(1, 1));
  const std::u16string linkage = VhdxTest::LinkageText(DataWriteGuid("base.vhdx"));
  struct Case {
    const char* name;
    Vhdx::ParentLocatorEntryList entries;
    std::uint32_t code, reason;
  };
  const Case cases[] = {
      {"mismatch", {{u"parent_linkage", u"{00000000-0000-0000-0000-000000000001}"}, {u"relative_path", u"base.vhdx"}},
       0x3C0025, 0},
      {"unbraced", {{u"parent_linkage", linkage.substr(1, 36)}, {u"relative_path", u"base.vhdx"}}, 0, 0},
      {"no linkage", {{u"relative_path", u"base.vhdx"}}, 0x3C0024, 0},
      {"no path", {{u"parent_linkage", linkage}, {u"other", u"base.vhdx"}}, 0x3C0022, 0},
      {"itself", {{u"parent_linkage", linkage}, {u"relative_path", u"itself.vhdx"}}, 0x3C0030, 0x3C0030},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string name = std::string(c.name) + ".vhdx";
    VhdxTest::CreateDifferencingChild(*Folder(), Common::FromUtf8(name), 8 << 20, kSector, c.entries);
    const Common::Error error = Raised([&] { Open(name); });
    EXPECT_EQ(error.Code(), c.code) << Common::ToUtf8(Common::FullText(error));
    if (c.reason) {
      EXPECT_EQ(error.Reason().Code(), c.reason);
    }
  }
  // Two files that name each other, their linkage made to match, and a
  // long chain, which is followed to its root.
  std::vector<std::string> names{"ping.vhdx", "pong.vhdx"};
  for (int i = 0; i < 100; ++i) names.push_back(std::string("c").append(std::to_string(i)).append(".vhdx"));
  std::vector<std::u16string> linkages;
  for (const std::string& name : names) {
    CreateDisk(name, 8 << 20);
    if (name == names.back()) Write(name, 0, Pattern(2, 9));
    linkages.push_back(VhdxTest::LinkageText(DataWriteGuid(name)));
  }
  auto link = [&](std::size_t from, std::size_t to) {
    VhdxTest::SetParentLocator(*Folder(), Common::FromUtf8(names[from]),
                               {{u"parent_linkage", linkages[to]}, {u"relative_path", Common::FromUtf8(names[to])}});
  };
  link(0, 1);
  link(1, 0);
  for (std::size_t i = 2; i + 1 < names.size(); ++i) link(i, i + 1);
  const Common::Error error = Raised([&] { Open("ping.vhdx"); });
  EXPECT_EQ(error.Code(), 0x3C0030u);
  EXPECT_EQ(error.Reason().Code(), 0x3C0030u);
  EXPECT_FALSE(error.Reason().Reason());
  EXPECT_NE(Common::FullText(error).find(u"already a member"), std::u16string::npos);
  EXPECT_TRUE(Read("c0.vhdx", 0, 3) == Pattern(2, 9) + std::string(kSector, '\0'));
}

TEST_F(DiskTest, DeleteRemovesTheWholeChainOrNothing) {
  CreateDisk("base.vhdx", 8 << 20);
  Write("base.vhdx", 0, Pattern(1, 1));
  CreateChild("child.vhdx", "base.vhdx", 8 << 20);
  Write("child.vhdx", 0, Pattern(1, 2));
  CreateChild("top.vhdx", "child.vhdx", 8 << 20);
  CreateChild("orphan.vhdx", "child.vhdx", 8 << 20, {{u"relative_path", u"gone.vhdx"}});

  const Common::Error failed = Raised([&] { Vhdx::DiskDeleter::Delete(*Folder(), u"orphan.vhdx"); });
  EXPECT_EQ(failed.Code(), 0x3C0009u);
  EXPECT_EQ(failed.Reason().Code(), 0x3C0030u);
  EXPECT_TRUE(HostTest::Exists(dir.Join("orphan.vhdx")));

  // vrig's rm takes the named file only: the parents may be other
  // children's. --chain is the deleter above, top first.
  const std::string vrig = std::string(VRIG_PATH) + " vhdx rm ";
  for (const char* name : {"top.vhdx", "orphan.vhdx"}) {
    EXPECT_EQ(HostTest::Shell(vrig + dir.Join(name)).status, 0) << name;
    EXPECT_FALSE(HostTest::Exists(dir.Join(name)));
  }
  EXPECT_TRUE(HostTest::Exists(dir.Join("child.vhdx")) && HostTest::Exists(dir.Join("base.vhdx")));
  EXPECT_EQ(HostTest::Shell(vrig + "--chain " + dir.Join("child.vhdx")).status, 0);
  for (const char* name : {"child.vhdx", "base.vhdx"}) EXPECT_FALSE(HostTest::Exists(dir.Join(name)));
}

// A tracker that answers from a table and counts the files it is asked for.
struct ScriptedTracker : FileTracker {
  struct Changes : ChangedFile {
    explicit Changes(const Changes* from) : full(from->full), regions(from->regions) {}
    Changes() = default;
    Common::Error IsFull(bool& isFull) override { return isFull = full, Common::NoError; }
    Common::Error GetRegionCount(std::uint32_t& count) override {
      return count = static_cast<std::uint32_t>(regions.size()), Common::NoError;
    }
    Common::Error GetRegions(std::uint32_t first, std::uint32_t count,
                             std::vector<std::pair<std::uint64_t, std::uint64_t>>& out) override {
      out.assign(regions.begin() + first, regions.begin() + first + count);
      return Common::NoError;
    }
    bool full = false;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> regions;
  };
  Common::Error GetCurrentChangeID(std::string& id) override { return id = "now", Common::NoError; }
  Common::Error GetChangedFile(const std::string&, const std::u16string& name,
                               std::unique_ptr<ChangedFile>& out) override {
    asked.push_back(name);
    if (files.count(name)) out = std::make_unique<Changes>(&files[name]);
    return Common::NoError;
  }
  Common::Error IsTracked(const std::u16string& name, bool& tracked) override {
    return tracked = files.count(name) > 0, Common::NoError;
  }
  std::map<std::u16string, Changes> files;  // a file not here is not tracked
  std::vector<std::u16string> asked;
};

// Changed sectors across a chain: "*" is the data each file holds; a
// tracked ID turns each file's changed bytes into sectors, payload and
// table alike, and the walk stops once the whole disk is known changed.
TEST_F(DiskTest, ChangedSectorsComeFromEachFileOfTheChain) {
  using VhdxTest::Areas;
  CreateDisk("base.vhdx", 4 * kBlock);
  Write("base.vhdx", 0, Pattern(1, 1));
  Write("base.vhdx", 2 * kBlockSectors, Pattern(1, 1));
  CreateChild("top.vhdx", "base.vhdx", 4 * kBlock);
  Write("top.vhdx", kBlockSectors + 10, Pattern(3, 2));
  ScriptedTracker tracker;
  auto changes = [&](const std::string& id, Vhd::DiskArea area = {0, 4 * kBlockSectors}) {
    Vhdx::DiskImpl disk(*Folder(), u"top.vhdx", consumer, false, &tracker);
    return VhdxTest::ChangedAreas(disk, id, area);
  };
  // Dynamic blocks count whole, a child's partly present block by its bits.
  EXPECT_EQ(changes("*"), (Areas{{0, kBlockSectors}, {kBlockSectors + 10, 3}, {2 * kBlockSectors, kBlockSectors}}));
  EXPECT_EQ(changes("*", {kBlockSectors + 11, 100}), (Areas{{kBlockSectors + 11, 2}}));
  EXPECT_TRUE(tracker.asked.empty());

  const std::u16string top = dir.Wide("top.vhdx"), base = dir.Wide("base.vhdx");
  const Common::Error untracked = Raised([&] { changes("older"); });
  EXPECT_EQ(untracked.Code(), 0x3C003Fu);
  EXPECT_EQ(untracked.GetText(), u"File '" + top + u"' is not tracked by the file tracker.");

  // One byte of the top's payload at sector kBlockSectors + 11, and the
  // table entry of block 3 (not present): that whole block.
  auto disk = Open("top.vhdx");
  const std::string file = Bytes("top.vhdx");
  const Vhdx::DiskFileLayout layout = disk->GetTop().GetLayout();
  std::uint64_t raw = 0;
  std::memcpy(&raw, file.data() + layout.BatOffset + 1 * sizeof raw, sizeof raw);  // block 1
  const std::uint64_t payload = Vhdx::BatEntry(raw).GetFileOffset();
  disk.reset();
  const std::uint64_t entry3 = layout.BatOffset + 3 * sizeof raw;
  tracker.files[top].regions = {{payload + 11 * kSector + 7, payload + 11 * kSector + 8}, {entry3, entry3 + 1},
                                {100, 200}};  // in the header: no sector
  tracker.files[base] = {};
  EXPECT_EQ(changes("older"), (Areas{{kBlockSectors + 11, 1}, {3 * kBlockSectors, kBlockSectors}}));
  EXPECT_EQ(tracker.asked, (std::vector<std::u16string>{top, base}));

  // A top file changed all over: its data covers the disk only with the
  // parent's, so the parent is asked too; a full parent adds its blocks.
  tracker.asked.clear();
  tracker.files[top] = {};
  tracker.files[top].full = true;
  tracker.files[base].full = true;
  EXPECT_EQ(changes("full"), (Areas{{0, kBlockSectors}, {kBlockSectors + 10, 3}, {2 * kBlockSectors, kBlockSectors}}));
  // A top file whose changes cover the whole disk ends the walk there.
  tracker.asked.clear();
  tracker.files[top] = {};
  tracker.files[top].regions = {{entry3 - 3 * sizeof raw, entry3 + sizeof raw}};  // every table entry
  tracker.files[top].regions.emplace_back(payload, payload + kBlock);
  EXPECT_EQ(changes("all"), (Areas{{0, 4 * kBlockSectors}}));
  EXPECT_EQ(tracker.asked, (std::vector<std::u16string>{top}));

  // Without a tracker only "*" is answered.
  Vhdx::DiskImpl alone(*Folder(), u"top.vhdx", consumer, false);
  EXPECT_EQ(Raised([&] { alone.GetCurrentChangeID(); }).Code(), 0x3C003Bu);
  Vhdx::DiskImpl tracked(*Folder(), u"top.vhdx", consumer, false, &tracker);
  EXPECT_EQ(tracked.GetCurrentChangeID(), "now");
}

using Recipe = Vhdx::ContainerRecipe;
using Kind = Recipe::Kind;


// 4097 blocks of 1 MiB cross a chunk: the BAT's sector bitmap entry sits
// between block 4095 and 4096, and must not shift the blocks after it.
TEST_F(DiskTest, FixedHoldsEveryBlockInPlace) {
  Recipe recipe{Kind::Fixed, 4097ull << 20, 512, 4096, 1u << 20, {}};
  Make("fixed.vhdx", recipe);
  const std::uint64_t size = Vhdx::FixedFileSize(recipe);
  EXPECT_EQ(std::filesystem::file_size(dir.Join("fixed.vhdx")), size);

  const Vhdx::BlockCensus census = Open("fixed.vhdx")->GetTop().CountBlocks();
  EXPECT_EQ(census.FullyPresent, 4097u);
  EXPECT_EQ(census.Blocks, 4097u);
  EXPECT_EQ(Read("fixed.vhdx", 0, 2), std::string(1024, '\0'));

  const std::string data = Pattern(2, 9);
  Write("fixed.vhdx", 4096ull * 2048, data);  // the first sectors of block 4096
  EXPECT_EQ(Read("fixed.vhdx", 4096ull * 2048, 2), data);
  EXPECT_EQ(std::filesystem::file_size(dir.Join("fixed.vhdx")), size);  // nothing allocated anew
  std::string onDisk(data.size(), '\0');
  const std::uint64_t lastBlock = size - (1u << 20);
  std::ifstream(dir.Join("fixed.vhdx"), std::ios::binary).seekg(static_cast<std::streamoff>(lastBlock)).read(
      onDisk.data(), static_cast<std::streamsize>(onDisk.size()));
  EXPECT_EQ(onDisk, data);
}

TEST_F(DiskTest, ChildTakesItsParentsShapeAndReadsThroughIt) {
  CreateDisk("base.vhdx", 8 << 20);
  const std::string base = Pattern(16, 3);
  Write("base.vhdx", 0, base);
  ASSERT_EQ(::mkdir(dir.Join("sub").c_str(), 0755), 0);
  const Common::Guid linkage = DataWriteGuid("base.vhdx");

  Recipe recipe = Vhdx::ChildOf(*Folder(), u"base.vhdx", u"sub/child.vhdx", 1u << 20);
  EXPECT_EQ(recipe.Type, Kind::Differencing);
  EXPECT_EQ(recipe.VirtualSize, 8u << 20);
  EXPECT_EQ(recipe.BlockSize, 1u << 20);
  std::u16string absolute = dir.Wide() + u"/base.vhdx";
  std::replace(absolute.begin(), absolute.end(), u'/', u'\\');
  ASSERT_EQ(recipe.ParentLocator.size(), 3u);
  EXPECT_EQ(Vhdx::ParseParentLinkage(recipe.ParentLocator[0].Value), linkage);
  EXPECT_EQ(recipe.ParentLocator[1].Value, u"..\\base.vhdx");
  EXPECT_EQ(recipe.ParentLocator[2].Value, absolute);
  Make("sub/child.vhdx", recipe);
  EXPECT_EQ(Vhdx::ChildOf(*Folder(), u"base.vhdx", u"other.vhdx").BlockSize, 4u << 20);  // the parent's

  EXPECT_EQ(Read("sub/child.vhdx", 0, 16), base);
  const std::string mine = Pattern(2, 40);
  Write("sub/child.vhdx", 4, mine);
  EXPECT_EQ(Read("sub/child.vhdx", 0, 16), base.substr(0, 2048) + mine + base.substr(3072));
  // A partly present block, last in the file and cut off by its end: a new
  // block goes behind where the cut block ends, not into the part cut off,
  // whose sectors would then read another block's data instead of zeros.
  Make("cut.vhdx", Vhdx::ChildOf(*Folder(), u"base.vhdx", u"cut.vhdx", 2u << 20));
  Write("cut.vhdx", 0, mine);
  Write("cut.vhdx", 4096 + 2048, mine);
  const std::uint64_t cut = (EntryOf("cut.vhdx", 1) >> 20 << 20) + 4096;
  ASSERT_EQ(::truncate(dir.Join("cut.vhdx").c_str(), static_cast<off_t>(cut)), 0);
  Write("cut.vhdx", 2 * 4096, Pattern(2, 41));
  EXPECT_TRUE(Read("cut.vhdx", 4096 + 2048, 2) == std::string(1024, '\0'));
  EXPECT_EQ(Read("cut.vhdx", 2 * 4096, 2), Pattern(2, 41));
  EXPECT_EQ(Read("base.vhdx", 0, 16), base);
  EXPECT_EQ(DataWriteGuid("base.vhdx"), linkage);
}

// 130945 blocks fill the table's first MiB exactly; the sector bitmap entry
// of the last, incomplete chunk lies behind it and must still have room.
TEST_F(DiskTest, AChildsLastChunkHasRoomForItsBitmapEntry) {
  CreateDisk("base.vhdx", 130945ull << 22);
  Make("child.vhdx", Vhdx::ChildOf(*Folder(), u"base.vhdx", u"child.vhdx"));
  const std::uint64_t last = (130945ull << 22) / 512 - 1;
  Write("child.vhdx", last, Pattern(1, 5));
  EXPECT_EQ(Read("child.vhdx", last, 1), Pattern(1, 5));
}

TEST_F(DiskTest, RefusesWhatTheFormatCannotHold) {
  struct Case {
    const char* what;
    Recipe recipe;
    const char16_t* says;
  } cases[] = {
      {"block not a power of two", {Kind::Dynamic, 1 << 30, 512, 4096, 3u << 20, {}}, u"block size 3145728"},
      {"block too large", {Kind::Fixed, 1 << 30, 512, 4096, 512u << 20, {}}, u"block size"},
      {"logical sector", {Kind::Dynamic, 1 << 30, 1024, 4096, 1u << 20, {}}, u"sector size 1024"},
      {"physical sector", {Kind::Dynamic, 1 << 30, 512, 2048, 1u << 20, {}}, u"sector size 2048"},
      {"empty", {Kind::Dynamic, 0, 512, 4096, 1u << 20, {}}, u"virtual size 0"},
      {"part of a sector", {Kind::Dynamic, 4096 + 512, 4096, 4096, 1u << 20, {}}, u"virtual size 4608"},
      {"past 64 TiB", {Kind::Dynamic, (64ull << 40) + 4096, 4096, 4096, 1u << 20, {}}, u"at most 64 TB"},
      {"child without locator", {Kind::Differencing, 1 << 30, 512, 4096, 1u << 20, {}}, u"Invalid arguments"},
  };
  for (const Case& c : cases) {
    const Common::Error error = Raised([&] { Vhdx::CheckRecipe(c.recipe); });
    EXPECT_EQ(error.Code(), 0x3C0001u) << c.what;
    EXPECT_NE(Common::FullText(error).find(c.says), std::u16string::npos) << c.what;
  }

  EXPECT_EQ(CodeOf([&] { Vhdx::ChildOf(*Folder(), u"missing.vhdx", u"child.vhdx"); }), 0x3C002Cu);
}

namespace Items = Vhdx::WellKnownItems;

const Vhdx::MetadataDescriptor kUserItem{VhdxTest::TestGuid(9), Format::kMetadataIsUser};

class DiskFileTest : public ::testing::Test {
 protected:
  DiskFileTest() {
    Vhdx::WriteableFile file(*memory);
    Vhdx::WriteDynamicContainer(file, {16 << 20, 512});
  }
  void Edit(const std::function<void(Vhdx::MetadataModifier&)>& edit) {
    Vhdx::WriteableFile file(*memory);
    VhdxTest::ModifyMetadata(file, edit);
  }
  void SetParameters(std::uint32_t flags) {
    Edit([&](Vhdx::MetadataModifier& m) {
      std::uint8_t value[8];
      Vhdx::FileParameters{0x400000, flags}.Store(value);
      m.Set(Items::kFileParameters, value, sizeof value);
    });
  }
  std::unique_ptr<Vhdx::DiskFile> Open(bool writable) {
    if (writable) return Vhdx::OpenWritableDiskFile(*memory, recorder);
    return Vhdx::OpenReadOnlyDiskFile(*memory, recorder);
  }

  std::unique_ptr<Common::MemoryFile> memory = Common::MemoryFile::Create();
  VhdxTest::MetadataItems recorder;
};

TEST_F(DiskFileTest, OpenRequiresSizesAndParametersAndDerivesTheType) {
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kDynamicFile);
  SetParameters(Vhdx::FileParameters::kLeaveBlocksAllocated);
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kFixedFile);
  SetParameters(Vhdx::FileParameters::kLeaveBlocksAllocated | Vhdx::FileParameters::kHasParent);
  EXPECT_EQ(Open(false)->GetFileType(), Vhdx::kDifferencingFile);

  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kPhysicalSectorSize); });
  EXPECT_NO_THROW(Open(false));
  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kVirtualDiskSize); });
  EXPECT_EQ(CodeOf([&] { Open(false); }), 0x3C001Du);
  Edit([](Vhdx::MetadataModifier& m) { m.Remove(Items::kLogicalSectorSize); });
  EXPECT_EQ(CodeOf([&] { Open(false); }), 0x3C001Cu);  // named first, though the size is missing too
}

TEST_F(DiskFileTest, MetadataSetAndRemoveGoThroughTheFiltersAndGrowTheRegion) {
  auto disk = Open(true);
  VhdxTest::MetadataItems provider, seen;
  provider.Items = {{kUserItem, "first"}, {Items::kFileParameters, std::string(8, '\0')}, {kUserItem, "never"}};
  EXPECT_EQ(CodeOf([&] { disk->SetMetadata(provider); }), 0x3C0037u);
  disk->EnumerateMetadata(seen);
  ASSERT_EQ(seen.Items.size(), 2u);  // the Page 83 item and the first user item
  EXPECT_EQ(seen.Items[1], std::make_pair(kUserItem, std::string("first")));

  // An item larger than the region's free room moves the region to the
  // end of the file and the region table follows it.
  const auto before = disk->GetLayout();
  provider.Items = {{kUserItem, std::string(0x100000, 'x')}};
  disk->SetMetadata(provider);
  const auto after = disk->GetLayout();
  EXPECT_NE(after.MetadataOffset, before.MetadataOffset);
  EXPECT_GT(after.MetadataLength, before.MetadataLength);
  disk.reset();
  auto reopened = Open(false);
  EXPECT_EQ(reopened->GetDiskParameters().VirtualSize, 16u << 20);
  // The open's consumer saw it at the reopen.
  EXPECT_NE(std::find(recorder.Items.begin(), recorder.Items.end(), provider.Items[0]), recorder.Items.end());

  Open(true)->RemoveMetadata(kUserItem);
  seen.Items.clear();
  Open(false)->EnumerateMetadata(seen);
  ASSERT_EQ(seen.Items.size(), 1u);
  EXPECT_EQ(seen.Items[0].first.Id, Format::kPage83DataItem);
}

// The disk hides its geometry items from callers, the disk file its type
// and locator items; both refuse to set them.
TEST_F(DiskTest, EachLevelKeepsItsOwnMetadataItems) {
  CreateDisk("a.vhdx", 4 << 20);
  auto disk = Open("a.vhdx", true);
  struct All : Vhdx::MetadataConsumer {
    std::vector<Common::Guid> Ids;
    void Consume(const Vhdx::MetadataDescriptor& d, const std::uint8_t*, std::uint32_t) override { Ids.push_back(d.Id); }
  } all;
  disk->EnumerateMetadata(all);
  EXPECT_EQ(all.Ids, (std::vector<Common::Guid>{Format::kPage83DataItem, Format::kPhysicalSectorSizeItem}));
  VhdxTest::MetadataItems provider;
  for (const auto& item : {Items::kVirtualDiskSize, Items::kLogicalSectorSize, Items::kFileParameters}) {
    provider.Items = {{item, std::string(8, '\0')}};
    EXPECT_EQ(CodeOf([&] { disk->SetMetadata(provider); }), 0x3C0037u);
  }
}

}  // namespace
