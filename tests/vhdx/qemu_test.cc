// Cross-checks against qemu-img and qemu-io, which the project's install
// script installs: black boxes, run and their output read.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "vellumrig/file_tracker.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/metadata/well_known_items.h"

namespace {

using HostTest::Outcome;
using HostTest::Shell;

namespace Format = Vhdx::Format;

struct Shape {
  const char *name, *options, *size;
};

const std::uint8_t* At(const std::string& bytes, std::uint64_t offset) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data()) + offset;
}

class QemuTest : public VhdxTest::DiskFixture {
 protected:
  void SetUp() override {
    if (!HostTest::Have("qemu-img") || !HostTest::Have("qemu-io"))
      GTEST_SKIP() << "qemu-img is not installed (Debian package qemu-utils; scripts/install-deps.sh installs it)";
  }
  // Creates the file and runs `io`, qemu-io commands, on it.
  std::string Create(const Shape& shape, const std::string& io = {}) {
    const std::string path = dir.Join(std::string(shape.name) + ".vhdx");
    Outcome run = Shell("qemu-img create -q -f vhdx " + std::string(shape.options) + " " + path + " " + shape.size);
    if (run.status == 0 && !io.empty()) run = Shell("qemu-io -f vhdx " + io + " " + path);
    EXPECT_EQ(run.status, 0) << run.output;
    return path;
  }
};

// Engine writes into a qemu file: blocks allocated and rewritten in place,
// and metadata set and removed, the region moved to the end of the file by an
// item too big for it. qemu must still find every structure and the same
// data, and the engine the items.
TEST_F(QemuTest, FilesChangedByTheEngineSatisfyQemu) {
  const std::string path = Create({"block1m", "-o block_size=1M", "20M"}, "-c 'write -P 0x33 0 3M'");
  const std::string data(5 * 512, '\x77');
  const Vhdx::MetadataDescriptor user{VhdxTest::TestGuid(4), Format::kMetadataIsUser};
  VhdxTest::MetadataItems set, seen;
  set.Items = {{user, std::string(100, 'u')},
               {Vhdx::WellKnownItems::kPage83Data, std::string(16, 'q')},
               {{VhdxTest::TestGuid(3), Format::kMetadataIsUser}, std::string(0x180000, 'm')}};
  {
    Vhdx::DiskImpl disk(*Folder(), u"block1m.vhdx", consumer, true);
    disk.Write(2047, 5, data.data());            // inside allocated blocks, across a boundary
    disk.Write(10 * 2048 - 2, 5, data.data());   // allocating two blocks
    const std::uint64_t before = disk.GetTop().GetLayout().MetadataOffset;
    disk.SetMetadata(set);
    EXPECT_NE(disk.GetTop().GetLayout().MetadataOffset, before);
    disk.GetTop().RemoveMetadata(user);
  }
  const Outcome check = Shell("qemu-img check -f vhdx " + path);
  EXPECT_EQ(check.status, 0) << check.output;
  ASSERT_EQ(Shell("qemu-img convert -f vhdx -O raw " + path + " " + path + ".raw").status, 0);
  std::string expected(20 << 20, '\0');
  expected.replace(0, 3 << 20, std::string(3 << 20, '\x33'));
  expected.replace(2047 * 512, data.size(), data);
  expected.replace((10 * 2048 - 2) * 512, data.size(), data);
  EXPECT_TRUE(HostTest::ReadBytes(path + ".raw") == expected);
  Vhdx::DiskImpl(*Folder(), u"block1m.vhdx", seen, false);
  set.Items.erase(set.Items.begin());
  EXPECT_TRUE(seen.Items == set.Items);
}

// Replays a log written by an independent writer: qemu's VHDX driver logs
// its BAT updates and then retires the log by clearing the header's
// LogGuid, leaving the entries behind. Putting the LogGuid back and undoing
// what the entry repairs gives a file that needs exactly that replay.
class QemuLogTest : public QemuTest {
 protected:
  void SetUp() override {
    QemuTest::SetUp();
    if (IsSkipped()) return;
    Create({"log", "", "40M"}, "-c 'write -q -P 0x5a 0 1M'");
    Damage();
  }

  // Brings back the log qemu left and zeroes the sector its first data
  // descriptor writes, remembering that sector as qemu wrote it.
  void Damage() {
    std::string bytes = HostTest::ReadBytes(path);
    const std::uint64_t h0 = Format::kHeaderOffsets[0], h1 = Format::kHeaderOffsets[1];
    const std::uint64_t header = Vhdx::LoadLe64(At(bytes, h1 + 8)) > Vhdx::LoadLe64(At(bytes, h0 + 8)) ? h1 : h0;
    ASSERT_TRUE(Vhdx::LoadGuid(At(bytes, header + Format::Header::kLogGuid)).IsZero());
    const std::uint64_t logOffset = Vhdx::LoadLe64(At(bytes, header + Format::Header::kLogOffset));
    const std::uint32_t logLength = Vhdx::LoadLe32(At(bytes, header + Format::Header::kLogLength));
    ASSERT_LE(logOffset + logLength, bytes.size());
    std::uint64_t entry = logOffset;
    while (entry < logOffset + logLength && std::memcmp(At(bytes, entry), "loge", 4) != 0) entry += 4096;
    ASSERT_LT(entry, logOffset + logLength) << "qemu left no log entry";
    ASSERT_EQ(std::memcmp(At(bytes, entry + 64), "desc", 4), 0);
    repaired = Vhdx::LoadLe64(At(bytes, entry + 64 + 16));
    ASSERT_LE(repaired + 4096, bytes.size());
    expected = bytes.substr(repaired, 4096);
    ASSERT_NE(expected, std::string(4096, '\0'));

    std::memcpy(bytes.data() + header + Format::Header::kLogGuid, At(bytes, entry + 32), 16);
    VhdxTest::Reseal(bytes, header, Format::kHeaderSize);
    bytes.replace(repaired, 4096, std::string(4096, '\0'));
    HostTest::WriteBytes(path, bytes);
    damaged = bytes;
  }

  const std::string path = dir.Join("log.vhdx");
  std::uint64_t repaired = 0;
  std::string expected, damaged;
};

// Through the whole open: the disk reads what qemu wrote although the BAT
// on disk has lost it, and the file stays as it was, log included.
TEST_F(QemuLogTest, ReadOnlyOpenSeesTheRepairAndLeavesTheFileAlone) {
  for (int open = 0; open < 2; ++open) {  // the log stays in force
    Vhdx::DiskImpl disk(*Folder(), u"log.vhdx", consumer, false);
    EXPECT_TRUE(disk.GetTop().IsLogReplayed());
    std::string data(Format::kMiB, '?');
    disk.Read(0, Format::kMiB / 512, data.data());
    EXPECT_EQ(data, std::string(Format::kMiB, '\x5a'));
  }
  // An export reads through the replay too.
  const Outcome exported = Shell(VRIG_PATH " vhdx export " + path + " " + path + ".raw");
  ASSERT_EQ(exported.status, 0) << exported.output;
  std::string image(40 * Format::kMiB, '\0');
  image.replace(0, Format::kMiB, Format::kMiB, '\x5a');
  EXPECT_TRUE(HostTest::ReadBytes(path + ".raw") == image);
  EXPECT_EQ(HostTest::ReadBytes(path), damaged);
}

TEST_F(QemuLogTest, WritableOpenRepairsTheFileForQemu) {
  {
    Vhdx::DiskImpl disk(*Folder(), u"log.vhdx", consumer, true);
    EXPECT_TRUE(disk.GetTop().IsLogReplayed());
  }
  const std::string bytes = HostTest::ReadBytes(path);
  EXPECT_EQ(bytes.substr(repaired, 4096), expected);
  EXPECT_FALSE(Vhdx::DiskImpl(*Folder(), u"log.vhdx", consumer, false).GetTop().IsLogReplayed());
  const Outcome check = Shell("qemu-img check -f vhdx " + path);
  EXPECT_EQ(check.status, 0) << check.output;
  EXPECT_NE(check.output.find("No errors"), std::string::npos) << check.output;
  ASSERT_EQ(Shell("qemu-img convert -f vhdx -O raw " + path + " " + path + ".raw").status, 0);
  EXPECT_EQ(HostTest::ReadBytes(path + ".raw").substr(0, Format::kMiB), std::string(Format::kMiB, '\x5a'));
}

// A user sees the replay as it happens with --trace, and not without it.
TEST_F(QemuLogTest, VrigTraceShowsTheReplaySteps) {
  const Outcome traced = Shell("VELLUMRIG_LOGGING=stderr " + std::string(VRIG_PATH) + " --trace 2 vhdx info " + path);
  EXPECT_EQ(traced.status, 0) << traced.output;
  EXPECT_NE(traced.output.find("vellumrig: level 2, facility 83, code 0x0: Reading log entry at offset"),
            std::string::npos)
      << traced.output;
  EXPECT_NE(traced.output.find("Processing of the log entry finished"), std::string::npos) << traced.output;
  const Outcome quiet = Shell("VELLUMRIG_LOGGING=stderr " + std::string(VRIG_PATH) + " vhdx info " + path);
  EXPECT_EQ(quiet.status, 0) << quiet.output;
  EXPECT_EQ(quiet.output.find("Reading log entry"), std::string::npos) << quiet.output;
  EXPECT_EQ(Shell(std::string(VRIG_PATH) + " --trace two vhdx info " + path).status, 2);
}

// A log replayed at open wrote into the file where no tracker saw it, so
// any change at all then counts for the whole disk.
TEST_F(QemuLogTest, AnyChangedRegionCountsForTheWholeDiskAfterAReplay) {
  Create({"plain", "", "40M"}, "-c 'write -q -P 0x5a 0 1M'");
  Common::Error error;
  const auto tracker = Host::OpenTracker(dir.Wide("tracker.db"), error);
  ASSERT_FALSE(error);
  ASSERT_FALSE(tracker->Track(dir.Wide()));
  std::string before, after;
  ASSERT_FALSE(tracker->GetCurrentChangeID(before));
  // The first byte of each file, written as it was: a change in the header,
  // which holds no sector.
  const auto tracked = tracker->OpenFolder(dir.Wide());
  for (const char16_t* name : {u"plain.vhdx", u"log.vhdx"}) {
    auto file = tracked->OpenFile(name, kOpenReadWrite);
    ASSERT_TRUE(file) << Common::ToUtf8(name);
    dynamic_cast<rio_file&>(*file).Write("v", 1);
    ASSERT_FALSE(file->TakeError());
  }
  ASSERT_FALSE(tracker->GetCurrentChangeID(after));

  constexpr std::uint64_t kSectors = (40 << 20) / 512;
  const struct {
    const char16_t* file;
    const std::string& id;
    VhdxTest::Areas expected;
  } cases[] = {{u"plain.vhdx", before, {}}, {u"log.vhdx", before, {{0, kSectors}}}, {u"log.vhdx", after, {}}};
  for (const auto& c : cases) {
    Vhdx::DiskImpl disk(*tracked, c.file, consumer, false, tracker.get());
    EXPECT_EQ(VhdxTest::ChangedAreas(disk, c.id, {0, kSectors}), c.expected) << Common::ToUtf8(c.file) << " since " << c.id;
  }
}

}  // namespace
