// vhdx_bench: how fast the engine reads and writes through Vhdx::DiskImpl,
// in 4 KiB and 1 MiB requests, sequential and random, on a dynamic file and
// on the top of a three-deep differencing chain. Run by scripts/bench.sh;
// nothing here is a test.
//
// The files live in a temporary folder for the run: 1 GiB virtual disks
// whose first 256 MiB hold data (the chain's spread over grandparent and
// parent), so that reads hit allocated blocks. Writes stay inside that
// stretch too: the dynamic file overwrites its blocks, the chain's top
// child takes them over from its parents.
#include <stdlib.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "vellumrig/error_text.h"
#include "vellumrig/host.h"
#include "vhdx/disk/create.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"

namespace {

constexpr std::uint64_t kMiB = 1 << 20;
constexpr std::uint64_t kVirtualSize = 1024 * kMiB;
constexpr std::uint64_t kDataSize = 256 * kMiB;
constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlock = 4 * kMiB;

std::vector<std::uint8_t> RandomBytes(std::size_t size, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; i += 8) {
    const std::uint64_t word = random();
    std::memcpy(bytes.data() + i, &word, 8);
  }
  return bytes;
}

class Files {
 public:
  Files() : path_((std::filesystem::temp_directory_path() / "vhdx-bench-XXXXXX").string()) {
    if (!::mkdtemp(path_.data())) throw std::runtime_error("mkdtemp failed");
    folder_ = Host::OpenFolder(Common::FromUtf8(path_));
    const std::vector<std::uint8_t> data = RandomBytes(kBlock, 1);

    Vhdx::Create(*folder_, u"dynamic.vhdx", Vhdx::kCreateDynamic, {kVirtualSize, kSector});
    Fill(u"dynamic.vhdx", data, 1);

    Vhdx::Create(*folder_, u"grandparent.vhdx", Vhdx::kCreateDynamic, {kVirtualSize, kSector});
    Fill(u"grandparent.vhdx", data, 1);
    ChildOf(u"grandparent.vhdx", u"parent.vhdx");
    // The parent holds every other block, so reads through the top
    // alternate between two files of the chain.
    Fill(u"parent.vhdx", data, 2);
    ChildOf(u"parent.vhdx", u"top.vhdx");
  }
  ~Files() {
    folder_.reset();
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  std::unique_ptr<Vhdx::DiskImpl> Open(const std::u16string& name, bool writable) {
    return std::make_unique<Vhdx::DiskImpl>(*folder_, name, consumer_, writable);
  }

 private:
  void Fill(const std::u16string& name, const std::vector<std::uint8_t>& data, std::uint64_t every) {
    auto disk = Open(name, true);
    for (std::uint64_t at = 0; at < kDataSize; at += every * kBlock) disk->Write(at / kSector, kBlock / kSector, data.data());
  }
  // A child of `parent`, made after the parent's last write, which renews
  // the GUID the child is linked by.
  void ChildOf(const std::u16string& parent, const std::u16string& child) {
    const Common::Guid linkage = Open(parent, false)->GetTop().GetWriteGuids().DataWriteGuid;
    VhdxTest::CreateDifferencingChild(*folder_, child, kVirtualSize, kSector,
                                      {{u"parent_linkage", VhdxTest::LinkageText(linkage)},
                                       {u"relative_path", parent}});
  }

  std::string path_;
  std::unique_ptr<rio_dir> folder_;
  Vhdx::OnlyCheckingMetadataConsumer consumer_;
};

Files* files = nullptr;

enum class Pattern { kSequential, kRandom };

// Request offsets over the data stretch: in order, wrapping, or at random
// request-aligned places.
class Offsets {
 public:
  Offsets(Pattern pattern, std::uint64_t size) : pattern_(pattern), size_(size), random_(7) {}
  std::uint64_t Next() {
    if (pattern_ == Pattern::kRandom) return random_() % (kDataSize / size_) * size_;
    const std::uint64_t at = next_;
    next_ = (next_ + size_) % kDataSize;
    return at;
  }

 private:
  Pattern pattern_;
  std::uint64_t size_;
  std::mt19937_64 random_;
  std::uint64_t next_ = 0;
};

void Read(benchmark::State& state, const char16_t* name, Pattern pattern) {
  const auto size = static_cast<std::uint64_t>(state.range(0));
  auto disk = files->Open(name, false);
  std::vector<std::uint8_t> buffer(size);
  Offsets offsets(pattern, size);
  for (auto _ : state) {
    disk->Read(offsets.Next() / kSector, size / kSector, buffer.data());
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}

void Write(benchmark::State& state, const char16_t* name, Pattern pattern) {
  const auto size = static_cast<std::uint64_t>(state.range(0));
  auto disk = files->Open(name, true);
  const std::vector<std::uint8_t> data = RandomBytes(size, 3);
  Offsets offsets(pattern, size);
  for (auto _ : state) disk->Write(offsets.Next() / kSector, size / kSector, data.data());
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  try {
    Files made;
    files = &made;
    struct Target {
      const char* label;
      const char16_t* file;
    };
    const Target targets[] = {{"dynamic", u"dynamic.vhdx"}, {"chain", u"top.vhdx"}};
    const struct {
      const char* label;
      Pattern pattern;
    } patterns[] = {{"sequential", Pattern::kSequential}, {"random", Pattern::kRandom}};
    // Reads first: the writes change what the chain's top holds.
    for (bool writing : {false, true})
      for (const Target& target : targets)
        for (const auto& p : patterns) {
          const std::string label = std::string(writing ? "write/" : "read/") + target.label + "/" + p.label;
          const char16_t* file = target.file;
          const Pattern pattern = p.pattern;
          benchmark::RegisterBenchmark(label.c_str(), [=](benchmark::State& state) {
            writing ? Write(state, file, pattern) : Read(state, file, pattern);
          })->Arg(4096)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);
        }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  } catch (const Common::Error& error) {
    std::fprintf(stderr, "vhdx_bench: %s\n", Common::ToUtf8(Common::FullText(error)).c_str());
    return 1;
  }
  return 0;
}
