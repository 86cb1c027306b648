// Replays a log written by an independent writer: qemu's VHDX driver logs
// its BAT updates and then retires the log by clearing the header's
// LogGuid, leaving the entries behind. Putting the LogGuid back and undoing
// what the entry repairs gives a file that needs exactly that replay.
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/test_files.h"

namespace {

using HostTest::Have;
using HostTest::Outcome;
using HostTest::Shell;

namespace Format = Vhdx::Format;

const std::uint8_t* At(const std::string& bytes, std::uint64_t offset) {
  return reinterpret_cast<const std::uint8_t*>(bytes.data()) + offset;
}

class QemuLogTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Have("qemu-img") || !Have("qemu-io"))
      GTEST_SKIP() << "qemu-img is not installed (Debian package qemu-utils; scripts/install-deps.sh installs it)";
    ASSERT_EQ(Shell("qemu-img create -q -f vhdx " + path + " 40M").status, 0);
    const Outcome write = Shell("qemu-io -f vhdx -c 'write -P 0x5a 0 1M' " + path);
    ASSERT_EQ(write.status, 0) << write.output;
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

  std::unique_ptr<i_file> Open(std::uint32_t mode) {
    auto file = folder->OpenFile(u"log.vhdx", mode);
    if (!file) throw std::runtime_error("cannot open " + path);
    return file;
  }

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
  const std::string path = dir.Join("log.vhdx");
  std::uint64_t repaired = 0;
  std::string expected, damaged;
  Vhdx::OnlyCheckingMetadataConsumer consumer;
};

// Through the whole open: the disk reads what qemu wrote although the BAT
// on disk has lost it, and the file stays as it was, log included.
TEST_F(QemuLogTest, ReadOnlyOpenSeesTheRepairAndLeavesTheFileAlone) {
  for (int open = 0; open < 2; ++open) {  // the log stays in force
    Vhdx::DiskImpl disk(*folder, u"log.vhdx", consumer, false);
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
    Vhdx::DiskImpl disk(*folder, u"log.vhdx", consumer, true);
    EXPECT_TRUE(disk.GetTop().IsLogReplayed());
  }
  const std::string bytes = HostTest::ReadBytes(path);
  EXPECT_EQ(bytes.substr(repaired, 4096), expected);
  EXPECT_FALSE(Vhdx::DiskImpl(*folder, u"log.vhdx", consumer, false).GetTop().IsLogReplayed());
  const Outcome check = Shell("qemu-img check -f vhdx " + path);
  EXPECT_EQ(check.status, 0) << check.output;
  EXPECT_NE(check.output.find("No errors"), std::string::npos) << check.output;
  ASSERT_EQ(Shell("qemu-img convert -f vhdx -O raw " + path + " " + path + ".raw").status, 0);
  EXPECT_EQ(HostTest::ReadBytes(path + ".raw").substr(0, Format::kMiB), std::string(Format::kMiB, '\x5a'));
}

}  // namespace

// A user sees the replay as it happens with --trace, and not without it.
TEST_F(QemuLogTest, VrigTraceShowsTheReplaySteps) {
  const std::string info = std::string(VRIG_PATH) + " vhdx info " + path;
  const Outcome traced = Shell("VELLUMRIG_LOGGING=stderr " + std::string(VRIG_PATH) + " --trace 2 vhdx info " + path);
  EXPECT_EQ(traced.status, 0) << traced.output;
  EXPECT_NE(traced.output.find("vellumrig: level 2, facility 83, code 0x0: Reading log entry at offset"),
            std::string::npos)
      << traced.output;
  EXPECT_NE(traced.output.find("Processing of the log entry finished"), std::string::npos) << traced.output;
  const Outcome quiet = Shell("VELLUMRIG_LOGGING=stderr " + info);
  EXPECT_EQ(quiet.status, 0) << quiet.output;
  EXPECT_EQ(quiet.output.find("Reading log entry"), std::string::npos) << quiet.output;
  EXPECT_EQ(Shell(std::string(VRIG_PATH) + " --trace two vhdx info " + path).status, 2);
}
