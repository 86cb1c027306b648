// A log replayed at open wrote into the file where no tracker saw it, so
// any change at all must then count for the whole disk. The file is qemu's:
// its VHDX driver logs its table updates and retires the log by clearing
// the header's LogGuid; putting that back makes the open replay the entry.
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/test_files.h"

namespace {

namespace Format = Vhdx::Format;
using Regions = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

// Every file is tracked and changed in the same regions.
struct SameRegionsTracker : FileTracker {
  struct Changes : ChangedFile {
    explicit Changes(Regions r) : regions(std::move(r)) {}
    Common::Error IsFull(bool& full) override { return full = false, Common::NoError; }
    Common::Error GetRegionCount(std::uint32_t& count) override {
      return count = static_cast<std::uint32_t>(regions.size()), Common::NoError;
    }
    Common::Error GetRegions(std::uint32_t first, std::uint32_t count, Regions& out) override {
      out.assign(regions.begin() + first, regions.begin() + first + count);
      return Common::NoError;
    }
    Regions regions;
  };
  Common::Error GetCurrentChangeID(std::string& id) override { return id = "1", Common::NoError; }
  Common::Error GetChangedFile(const std::string&, const std::u16string&, std::unique_ptr<ChangedFile>& out) override {
    out = std::make_unique<Changes>(regions);
    return Common::NoError;
  }
  Common::Error IsTracked(const std::u16string&, bool& tracked) override { return tracked = true, Common::NoError; }
  Regions regions;
};

// Puts the LogGuid of qemu's first log entry back into the current header.
void BringBackTheLog(const std::string& path) {
  std::string bytes = HostTest::ReadBytes(path);
  const auto at = [&](std::uint64_t offset) { return reinterpret_cast<const std::uint8_t*>(bytes.data()) + offset; };
  const std::uint64_t h0 = Format::kHeaderOffsets[0], h1 = Format::kHeaderOffsets[1];
  const std::uint64_t header = Vhdx::LoadLe64(at(h1 + 8)) > Vhdx::LoadLe64(at(h0 + 8)) ? h1 : h0;
  std::uint64_t entry = Vhdx::LoadLe64(at(header + Format::Header::kLogOffset));
  while (entry + 4096 <= bytes.size() && std::memcmp(at(entry), "loge", 4) != 0) entry += 4096;
  ASSERT_LE(entry + 4096, bytes.size()) << "qemu left no log entry";
  std::memcpy(bytes.data() + header + Format::Header::kLogGuid, at(entry + 32), 16);
  VhdxTest::Reseal(bytes, header, Format::kHeaderSize);
  HostTest::WriteBytes(path, bytes);
}

TEST(ChangesAfterReplayTest, AnyChangedRegionReportsTheWholeDiskAfterAReplay) {
  if (!HostTest::Have("qemu-img") || !HostTest::Have("qemu-io"))
    GTEST_SKIP() << "qemu-img and qemu-io are missing (Debian qemu-utils)";
  HostTest::TempDir dir;
  for (const char* name : {"plain.vhdx", "logged.vhdx"}) {
    ASSERT_EQ(HostTest::Shell("qemu-img create -q -f vhdx " + dir.Join(name) + " 40M").status, 0);
    ASSERT_EQ(HostTest::Shell("qemu-io -f vhdx -c 'write -q -P 0x5a 0 1M' " + dir.Join(name)).status, 0);
  }
  BringBackTheLog(dir.Join("logged.vhdx"));

  constexpr std::uint64_t kSectors = (40 << 20) / 512;
  const Regions inHeader = {{0, 1}};
  const struct {
    const char16_t* file;
    Regions regions;
    Regions expected;
  } cases[] = {
      {u"plain.vhdx", inHeader, {}},  // the header holds no sector
      {u"logged.vhdx", inHeader, {{0, kSectors}}},
      {u"logged.vhdx", {}, {}},  // no change, nothing to widen
  };
  const std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  for (const auto& c : cases) {
    SameRegionsTracker tracker;
    tracker.regions = c.regions;
    Vhdx::DiskImpl disk(*folder, c.file, consumer, false, &tracker);
    struct : Vhd::DiskAreaCollector {
      bool Collect(const Vhd::DiskArea& area) override {
        got.emplace_back(area.Offset, area.Size);
        return true;
      }
      Regions got;
    } collected;
    disk.GetChangedAreas("1", {0, kSectors}, collected);
    EXPECT_EQ(disk.GetTop().IsLogReplayed(), c.file == std::u16string(u"logged.vhdx"));
    EXPECT_EQ(collected.got, c.expected) << Common::ToUtf8(c.file) << " with " << c.regions.size() << " regions";
  }
}

}  // namespace
