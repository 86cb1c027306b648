// Cross-checks against files made by qemu-img, which the project's install
// script installs: a black box, run and its output read.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"
#include "vellumrig/host.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/test_files.h"
#include "vhdx/metadata/well_known_items.h"

namespace {

using HostTest::Have;
using HostTest::JsonNumber;
using HostTest::Outcome;
using HostTest::Shell;

namespace Format = Vhdx::Format;

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

  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
};

// Every shape opens with the values qemu reports; the first three, written
// to, read as qemu's raw conversion has them.
TEST_F(QemuImageTest, FilesMadeByQemuReadAsQemuReadsThem) {
  const std::string writes = "-c 'write -P 0xab 0 3M' -c 'write -P 0xcd 5M 512' -c 'write -P 0x11 1048064 1024'"
                             " -c 'write -z 2M 512K' -c 'write -P 0x5a 9000000 70000'";
  for (const Shape& shape : kShapes) {
    SCOPED_TRACE(shape.name);
    const bool written = &shape - kShapes < 3;
    const std::string path = Create(shape, written ? writes : ""), info = Info(path);
    // qemu does not read a file that another program holds.
    if (written) {
      ASSERT_EQ(Shell("qemu-img convert -O raw " + path + " " + path + ".raw").status, 0);
    }
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*folder, Common::FromUtf8(std::string(shape.name) + ".vhdx"), consumer, false);
    // qemu writes 512-byte logical sectors and does not report them.
    EXPECT_EQ(disk.GetDiskParameters().LogicalSectorSize, 512u);
    EXPECT_EQ(disk.GetDiskParameters().VirtualSize, JsonNumber(info, "virtual-size"));
    EXPECT_EQ(disk.GetTop().GetLayout().BlockSize, JsonNumber(info, "cluster-size"));
    EXPECT_EQ(disk.GetTop().GetFileType(), shape.name == std::string("fixed") ? Vhdx::kFixedFile : Vhdx::kDynamicFile);
    EXPECT_FALSE(disk.GetTop().IsLogReplayed());
    if (!written) continue;

    const std::string expected = HostTest::ReadBytes(path + ".raw");
    const std::uint64_t sectors = expected.size() / 512;
    // An odd request size, so that requests start and end inside blocks.
    std::string actual(expected.size(), '\0');
    for (std::uint64_t sector = 0; sector < sectors; sector += 777)
      disk.Read(sector, std::min<std::uint64_t>(777, sectors - sector), actual.data() + sector * 512);
    EXPECT_TRUE(actual == expected);
  }
}

// Engine writes into a qemu file: blocks allocated and rewritten in place,
// and metadata set and removed, the region moved to the end of the file by an
// item too big for it. qemu must still find every structure and the same
// data, and the engine the items.
TEST_F(QemuImageTest, FilesChangedByTheEngineSatisfyQemu) {
  const std::string path = Create(kShapes[1], "-c 'write -P 0x33 0 3M'");
  const std::string data(5 * 512, '\x77');
  const Vhdx::MetadataDescriptor user{VhdxTest::TestGuid(4), Format::kMetadataIsUser};
  struct Items : Vhdx::MetadataProvider, Vhdx::SelectiveMetadataConsumer {
    std::vector<std::pair<Vhdx::MetadataDescriptor, std::string>> items;
    void Provide(Vhdx::SelectiveMetadataConsumer& consumer) override {
      for (const auto& [d, item] : items)
        consumer.Consume(d, reinterpret_cast<const std::uint8_t*>(item.data()), static_cast<std::uint32_t>(item.size()));
    }
    bool CanConsume(const Vhdx::MetadataDescriptor& d) const override { return d.IsUser() || d.Id == Format::kPage83DataItem; }
    void Consume(const Vhdx::MetadataDescriptor& d, const std::uint8_t* p, std::uint32_t size) override {
      items.emplace_back(d, std::string(reinterpret_cast<const char*>(p), size));
    }
  } set, seen;
  set.items = {{user, std::string(100, 'u')},
               {Vhdx::WellKnownItems::kPage83Data, std::string(16, 'q')},
               {{VhdxTest::TestGuid(3), Format::kMetadataIsUser}, std::string(0x180000, 'm')}};
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*folder, u"block1m.vhdx", consumer, true);
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
  Vhdx::DiskImpl(*folder, u"block1m.vhdx", seen, false);
  set.items.erase(set.items.begin());
  EXPECT_TRUE(seen.items == set.items);
}

}  // namespace
