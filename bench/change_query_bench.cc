// change_query_bench: how long a changed-sector question takes for one
// change ID on a 2 TiB dynamic container whose tracker names 10,000 changed
// regions spread over it, and on the top of a three-deep chain of such
// files; and that asking for many areas of one ID walks the chain once.
// Run by scripts/bench.sh; nothing here is a test.
//
// The files are sparse: each holds a few hundred blocks of one written
// sector. The tracker is a table in memory, so what is measured is the
// engine's work, not a database's.
#include <stdlib.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "vellumrig/error_text.h"
#include "vellumrig/host.h"
#include "vellumrig/tracker.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"

namespace {

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::uint64_t kVirtualSize = std::uint64_t{2} << 40;
constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlock = 4 * kMiB;
constexpr std::uint64_t kBlocks = kVirtualSize / kBlock;
constexpr int kWrittenBlocks = 300;
constexpr int kRegions = 10000;

using Regions = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

class TableTracker : public FileTracker {
 public:
  struct Changes : ChangedFile {
    explicit Changes(const Regions& r) : regions(r) {}
    Common::Error IsFull(bool& full) override { return full = false, Common::NoError; }
    Common::Error GetRegionCount(std::uint32_t& count) override {
      return count = static_cast<std::uint32_t>(regions.size()), Common::NoError;
    }
    Common::Error GetRegions(std::uint32_t first, std::uint32_t count, Regions& out) override {
      out.assign(regions.begin() + first, regions.begin() + first + count);
      return Common::NoError;
    }
    const Regions& regions;
  };
  Common::Error GetCurrentChangeID(std::string& id) override { return id = "now", Common::NoError; }
  Common::Error GetChangedFile(const std::string&, const std::u16string& name,
                               std::unique_ptr<ChangedFile>& out) override {
    ++asked;
    out = std::make_unique<Changes>(files.at(name));
    return Common::NoError;
  }
  Common::Error IsTracked(const std::u16string& name, bool& tracked) override {
    return tracked = files.count(name) > 0, Common::NoError;
  }
  std::map<std::u16string, Regions> files;
  int asked = 0;
};

class Files {
 public:
  Files() : path_((std::filesystem::temp_directory_path() / "change-bench-XXXXXX").string()) {
    if (!::mkdtemp(path_.data())) throw std::runtime_error("mkdtemp failed");
    folder_ = Host::OpenFolder(Common::FromUtf8(path_));
    Make(u"base.vhdx", nullptr, 1);
    Make(u"middle.vhdx", u"base.vhdx", 2);
    Make(u"top.vhdx", u"middle.vhdx", 3);
  }
  ~Files() { std::filesystem::remove_all(path_); }

  rio_dir& Folder() { return *folder_; }
  TableTracker tracker;

 private:
  // Blocks spread over the disk with one sector each, then 10,000 regions
  // over their payload and the table.
  void Make(const std::u16string& name, const char16_t* parent, std::uint64_t seed) {
    if (parent) {
      Vhdx::OnlyCheckingMetadataConsumer consumer;
      const Common::Guid linkage =
          Vhdx::DiskImpl(*folder_, parent, consumer, false).GetTop().GetWriteGuids().DataWriteGuid;
      VhdxTest::CreateDifferencingChild(*folder_, name, kVirtualSize, kSector,
                                        {{u"parent_linkage", VhdxTest::LinkageText(linkage)},
                                         {u"relative_path", parent}});
    } else {
      Vhdx::Create(*folder_, name, Vhdx::kCreateDynamic, {kVirtualSize, kSector});
    }
    std::mt19937_64 random(seed);
    std::vector<std::uint64_t> blocks;
    {
      Vhdx::OnlyCheckingMetadataConsumer consumer;
      Vhdx::DiskImpl disk(*folder_, name, consumer, true);
      const std::vector<std::uint8_t> sector(kSector, static_cast<std::uint8_t>(seed));
      for (int i = 0; i < kWrittenBlocks; ++i) {
        const std::uint64_t block = random() % kBlocks;
        disk.Write(block * (kBlock / kSector) + random() % (kBlock / kSector), 1, sector.data());
        blocks.push_back(block);
      }
    }
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*folder_, name, consumer, false);
    const Vhdx::DiskFileLayout layout = disk.GetTop().GetLayout();
    const std::string file = ReadFile(path_ + "/" + Common::ToUtf8(name));
    const std::uint64_t chunkRatio = (std::uint64_t{1} << 23) * kSector / kBlock;
    Regions& regions = tracker.files[disk.GetTop().GetFullName()];
    for (int i = 0; i < kRegions; ++i) {
      const std::uint64_t block = blocks[random() % blocks.size()];
      const std::uint64_t index = block + block / chunkRatio;
      std::uint64_t raw = 0;
      std::memcpy(&raw, file.data() + layout.BatOffset + index * 8, 8);
      // One region in ten is a rewritten table entry, the rest payload.
      if (i % 10 == 0) {
        const std::uint64_t entry = layout.BatOffset + index * 8;
        regions.emplace_back(entry, entry + 8);
      } else {
        const std::uint64_t at = Vhdx::BatEntry(raw).GetFileOffset() + random() % kBlock;
        regions.emplace_back(at, at + 1 + random() % 8192);
      }
    }
  }

  static std::string ReadFile(const std::string& path) {
    // Only the first megabytes hold the table; the rest of the sparse file
    // is not read.
    std::string bytes(16 * kMiB, '\0');
    FILE* f = std::fopen(path.c_str(), "rb");
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), f));
    std::fclose(f);
    return bytes;
  }

  std::string path_;
  std::unique_ptr<rio_dir> folder_;
};

Files& Shared() {
  static Files files;
  return files;
}

struct Counter : Vhd::DiskAreaCollector {
  bool Collect(const Vhd::DiskArea& area) override { return sectors += area.Size, true; }
  std::uint64_t sectors = 0;
};

// A new ID each time: the whole walk, the tracker's answers and the
// translation of every region.
void Query(benchmark::State& state, const char16_t* name) {
  Files& files = Shared();
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(files.Folder(), name, consumer, false, &files.tracker);
  int id = 0;
  Counter counter;
  for (auto _ : state) {
    counter.sectors = 0;
    disk.GetChangedAreas(std::to_string(++id), {0, kVirtualSize / kSector}, counter);
  }
  state.counters["changed_sectors"] = static_cast<double>(counter.sectors);
}

// Many small areas of one ID: the chain is walked once, then only the kept
// answer is cut.
void ManyAreas(benchmark::State& state) {
  Files& files = Shared();
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(files.Folder(), u"top.vhdx", consumer, false, &files.tracker);
  int id = 0;
  for (auto _ : state) {
    files.tracker.asked = 0;
    Counter counter;
    const std::string changeId = "areas" + std::to_string(++id);
    const std::uint64_t step = kVirtualSize / kSector / 1000;
    for (std::uint64_t at = 0; at < kVirtualSize / kSector; at += step) disk.GetChangedAreas(changeId, {at, step}, counter);
    if (files.tracker.asked != 3) state.SkipWithError("the chain was walked more than once");
  }
  state.counters["walks_per_id"] = files.tracker.asked / 3.0;
}

BENCHMARK_CAPTURE(Query, dynamic_2TiB, u"base.vhdx")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Query, chain_of_three, u"top.vhdx")->Unit(benchmark::kMillisecond);
BENCHMARK(ManyAreas)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
