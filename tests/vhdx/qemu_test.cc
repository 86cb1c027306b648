// Cross-checks against files made by qemu-img, which the project's install
// script installs: a black box, run and its output read.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/bat_disk_reader.h"
#include "vhdx/disk.h"
#include "vhdx/disk_file_hierarchy.h"
#include "vhdx/file_validator.h"
#include "vhdx/header_reader.h"
#include "vhdx/header_writer.h"
#include "vhdx/region_table_reader.h"
#include "vhdx/region_table_writer.h"
#include "vhdx/test_files.h"
#include "vhdx/write_guid.h"
#include "vhdx/writeable_file.h"

namespace {

using HostTest::Have;
using HostTest::JsonNumber;
using HostTest::Outcome;
using HostTest::Shell;

namespace Format = Vhdx::Format;
using VhdxTest::CodeOf;

struct Shape {
  const char *name, *options, *size;
};
const Shape kShapes[] = {{"dynamic", "", "40M"}, {"block1m", "-o block_size=1M", "20M"},
                         {"fixed", "-o subformat=fixed", "12M"}, {"block256m", "-o block_size=256M", "1G"},
                         {"empty", "", "0"}};

class QemuImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Have("qemu-img") || !Have("qemu-io"))
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
  std::string Info(const std::string& path) {
    const Outcome run = Shell("qemu-img info --output=json " + path);
    EXPECT_EQ(run.status, 0) << run.output;
    return run.output;
  }
  // The file as the module gets it from a host; kOpenReadWrite gives an rio_file.
  std::unique_ptr<i_file> Open(const std::string& path, std::uint32_t mode = kOpenRead) {
    auto file = folder->OpenFile(Common::FromUtf8(std::filesystem::path(path).filename().string()), mode);
    if (!file) throw std::runtime_error("cannot open " + path);
    return file;
  }

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
};

// Every shape is found and agrees with qemu; the first three, written to,
// read through the BAT as qemu's raw conversion has them.
TEST_F(QemuImageTest, FilesMadeByQemuReadAsQemuReadsThem) {
  const std::string writes = "-c 'write -P 0xab 0 3M' -c 'write -P 0xcd 5M 512' -c 'write -P 0x11 1048064 1024'"
                             " -c 'write -z 2M 512K' -c 'write -P 0x5a 9000000 70000'";
  for (const Shape& shape : kShapes) {
    SCOPED_TRACE(shape.name);
    const bool written = &shape - kShapes < 3;
    const std::string path = Create(shape, written ? writes : ""), info = Info(path);
    auto raw = Open(path);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*raw));
    Vhdx::FileValidator::CheckVersion(file);
    const Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(file);
    EXPECT_TRUE(header.LogGuid.IsZero());
    EXPECT_EQ(header.LogOffset % Format::kMiB, 0u);
    const Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    const auto bat = Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid);
    const auto metadata = Vhdx::GetRegionEntryById(regions, Format::kMetadataRegionGuid);
    for (const auto& region : {bat, metadata}) {
      EXPECT_EQ(region.FileOffset % Format::kMiB, 0u);
      EXPECT_GE(region.FileOffset, Format::kMiB);
      EXPECT_LE(region.FileOffset + region.Length, std::filesystem::file_size(path));
    }
    EXPECT_FALSE(Vhdx::Overlap({bat.FileOffset, bat.Length}, {metadata.FileOffset, metadata.Length}));
    // qemu writes 512-byte logical sectors and does not report them.
    const auto geometry = Vhdx::BlockGeometry::Make(static_cast<std::uint32_t>(JsonNumber(info, "cluster-size")), 512,
                                                    JsonNumber(info, "virtual-size"));
    EXPECT_GE(bat.Length, 8 * geometry.BatEntryCount);
    if (!written) continue;

    ASSERT_EQ(Shell("qemu-img convert -O raw " + path + " " + path + ".raw").status, 0);
    const std::string expected = HostTest::ReadBytes(path + ".raw");
    ASSERT_EQ(geometry.SectorCount * 512, expected.size());
    Vhdx::BatAreaLoader loader(file, {bat.FileOffset, bat.Length}, geometry.ChunkRatio);
    Vhdx::BatDiskReader reader(file, loader, geometry, false);
    // An odd request size, so that requests start and end inside blocks.
    std::string actual(expected.size(), '\0');
    for (std::uint64_t sector = 0; sector < geometry.SectorCount; sector += 777) {
      const std::uint64_t count = std::min<std::uint64_t>(777, geometry.SectorCount - sector);
      const auto wanted = Vhd::CreateBitmap(count, true);
      reader.Read(sector, *wanted, actual.data() + sector * 512);
      ASSERT_EQ(wanted->Find(true), count) << sector;
    }
    EXPECT_TRUE(actual == expected);
  }
}

TEST_F(QemuImageTest, DamagedCopiesFallBackAndDamagedSingletonsAreRefused) {
  const std::string original = Create(kShapes[0]);
  Vhdx::HeaderInfo header;
  Vhdx::RegionList regions;
  struct Case {
    const char* name;
    std::vector<std::uint64_t> bytes;                  // one bit flipped in each
    std::uint32_t versionCode, headerCode, tableCode;  // 0: reads as before
  };
  const std::uint64_t h0 = 0x10000 + 900, h1 = 0x20000 + 37, t0 = 0x30000 + 5000, t1 = 0x40000 + 1;
  const Case cases[] = {
      {"intact", {}, 0, 0, 0}, {"identifier", {2}, 0x3C0003, 0, 0},
      {"header0", {h0}, 0, 0, 0}, {"header1", {h1}, 0, 0, 0},
      {"headers", {h0, h1}, 0x3C0010, 0x3C0010, 0}, {"table0", {t0}, 0, 0, 0}, {"table1", {t1}, 0, 0, 0},
      {"tables", {t0, t1}, 0, 0, 0x3C0011},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string bytes = HostTest::ReadBytes(original);
    for (const std::uint64_t at : c.bytes) bytes[at] ^= 0x08;
    const std::string path = dir.Join(std::string(c.name) + ".vhdx");
    HostTest::WriteBytes(path, bytes);
    auto raw = Open(path);
    Vhdx::ReadOnlyFile file(dynamic_cast<ri_file&>(*raw));
    if (c.bytes.empty()) {  // the reference for the damaged ones
      header = Vhdx::HeaderReader::Read(file);
      regions = Vhdx::RegionTableReader::Read(file);
    }
    EXPECT_EQ(CodeOf([&] { Vhdx::FileValidator::CheckVersion(file); }), c.versionCode);
    EXPECT_EQ(CodeOf([&] { EXPECT_EQ(Vhdx::HeaderReader::Read(file), header); }), c.headerCode);
    EXPECT_EQ(CodeOf([&] { EXPECT_EQ(Vhdx::RegionTableReader::Read(file), regions); }), c.tableCode);
  }
}

TEST_F(QemuImageTest, RewrittenHeadersAndRegionTablesStillSatisfyQemu) {
  for (const Shape& shape : {kShapes[0], kShapes[2]}) {
    SCOPED_TRACE(shape.name);
    const std::string path = Create(shape);
    {
      auto raw = Open(path, kOpenReadWrite);
      Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*raw));
      Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(file);
      header.FileWriteGuid = Vhdx::NewWriteGuid();
      header.DataWriteGuid = Vhdx::NewWriteGuid();
      Vhdx::HeaderWriter::Write(file, header);
      Vhdx::RegionTableWriter::Write(file, Vhdx::RegionTableReader::Read(file));
      file.Flush();
    }
    const Outcome check = Shell("qemu-img check " + path);
    EXPECT_EQ(check.status, 0) << check.output;
    EXPECT_NE(check.output.find("No errors"), std::string::npos) << check.output;
    // qemu finds its way to the data through the rewritten tables as well.
    const Outcome read = Shell("qemu-io -f vhdx -r -c 'read -P 0 0 64k' " + path);
    EXPECT_EQ(read.status, 0) << read.output;
  }
}

// Engine writes into a qemu file: blocks allocated and rewritten in place,
// and the metadata region moved to the end of the file by an item too big
// for it. qemu must still find every structure and the same data.
TEST_F(QemuImageTest, FilesChangedByTheEngineSatisfyQemu) {
  const std::string path = Create(kShapes[1], "-c 'write -P 0x33 0 3M'");
  const std::string data(5 * 512, '\x77');
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*folder, u"block1m.vhdx", consumer, true);
    disk.Write(2047, 5, data.data());            // inside allocated blocks, across a boundary
    disk.Write(10 * 2048 - 2, 5, data.data());   // allocating two blocks
    struct Big : Vhdx::MetadataProvider {
      void Provide(Vhdx::SelectiveMetadataConsumer& consumer) override {
        const std::string item(0x180000, 'm');
        consumer.Consume({VhdxTest::TestGuid(3), Format::kMetadataIsUser},
                         reinterpret_cast<const std::uint8_t*>(item.data()), static_cast<std::uint32_t>(item.size()));
      }
    } big;
    const std::uint64_t before = disk.GetTop().GetLayout().MetadataOffset;
    disk.SetMetadata(big);
    EXPECT_NE(disk.GetTop().GetLayout().MetadataOffset, before);
  }
  const Outcome check = Shell("qemu-img check -f vhdx " + path);
  EXPECT_EQ(check.status, 0) << check.output;
  ASSERT_EQ(Shell("qemu-img convert -f vhdx -O raw " + path + " " + path + ".raw").status, 0);
  std::string expected(20 << 20, '\0');
  expected.replace(0, 3 << 20, std::string(3 << 20, '\x33'));
  expected.replace(2047 * 512, data.size(), data);
  expected.replace((10 * 2048 - 2) * 512, data.size(), data);
  EXPECT_TRUE(HostTest::ReadBytes(path + ".raw") == expected);
}

}  // namespace
