// A log replayed at open wrote into the file where no tracker saw it, so
// any change at all then counts for the whole disk. qemu's VHDX driver
// leaves its log entries behind with the header's LogGuid cleared; putting
// that back makes the next open replay them.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/file_tracker.h"
#include "vhdx/disk/disk.h"
#include "vhdx/test_files.h"

namespace {

namespace Format = Vhdx::Format;
using Areas = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

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

TEST(ChangesAfterReplayTest, AnyChangedRegionCountsForTheWholeDiskAfterAReplay) {
  if (!HostTest::Have("qemu-img") || !HostTest::Have("qemu-io")) GTEST_SKIP() << "qemu-utils are missing";
  HostTest::TempDir dir;
  for (const char* name : {"plain.vhdx", "logged.vhdx"}) {
    ASSERT_EQ(HostTest::Shell("qemu-img create -q -f vhdx " + dir.Join(name) + " 40M").status, 0);
    ASSERT_EQ(HostTest::Shell("qemu-io -f vhdx -c 'write -q -P 0x5a 0 1M' " + dir.Join(name)).status, 0);
  }
  BringBackTheLog(dir.Join("logged.vhdx"));
  Common::Error error;
  const auto tracker = Host::OpenTracker(dir.Wide("tracker.db"), error);
  ASSERT_FALSE(error);
  ASSERT_FALSE(tracker->Track(dir.Wide()));
  std::string before, after;
  ASSERT_FALSE(tracker->GetCurrentChangeID(before));
  // The first byte of each file, written as it was: a change in the header,
  // which holds no sector.
  const auto folder = tracker->OpenFolder(dir.Wide());
  for (const char16_t* name : {u"plain.vhdx", u"logged.vhdx"}) {
    auto file = folder->OpenFile(name, kOpenReadWrite);
    ASSERT_TRUE(file) << Common::ToUtf8(name);
    dynamic_cast<rio_file&>(*file).Write("v", 1);
    ASSERT_FALSE(file->TakeError());
  }
  ASSERT_FALSE(tracker->GetCurrentChangeID(after));

  constexpr std::uint64_t kSectors = (40 << 20) / 512;
  const struct {
    const char16_t* file;
    const std::string& id;
    Areas expected;
  } cases[] = {{u"plain.vhdx", before, {}}, {u"logged.vhdx", before, {{0, kSectors}}}, {u"logged.vhdx", after, {}}};
  for (const auto& c : cases) {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*folder, c.file, consumer, false, tracker.get());
    struct : Vhd::DiskAreaCollector {
      bool Collect(const Vhd::DiskArea& area) override { return got.emplace_back(area.Offset, area.Size), true; }
      Areas got;
    } collected;
    disk.GetChangedAreas(c.id, {0, kSectors}, collected);
    EXPECT_EQ(collected.got, c.expected) << Common::ToUtf8(c.file) << " since " << c.id;
  }
}

}  // namespace
