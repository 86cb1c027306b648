// A write cut off after each of its file changes in turn: the file must
// open afterwards, show either the old or the new data in every sector, and
// (for the files qemu reads) satisfy qemu-img check.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/disk_fixture.h"
#include "vhdx/failing_file.h"
#include "vhdx/test_files.h"

namespace {

using VhdxTest::Pattern;

constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kBlockSectors = 0x400000 / kSector;
constexpr std::uint64_t kSize = 12 << 20;  // three blocks

class WriteRecoveryTest : public VhdxTest::DiskFixture {
 protected:
  std::string ReadAll(const std::string& name) { return Read(name, 0, kSize / kSector); }
  // Runs the write of `data` at `sector` on a copy of `name` whose file
  // takes only `budget` changes; gives how many it asked for.
  std::uint64_t CutWrite(const std::string& name, const std::string& copy, std::uint64_t budget,
                         std::uint64_t sector, const std::string& data) {
    std::filesystem::copy_file(dir.Join(name), dir.Join(copy), std::filesystem::copy_options::overwrite_existing);
    auto host = Folder()->OpenFile(Common::FromUtf8(copy), kOpenReadWrite);
    VhdxTest::FailingFile file(std::unique_ptr<rio_file>(dynamic_cast<rio_file*>(host.release())), budget);
    try {
      auto disk = Vhdx::OpenWritableDiskFile(file, consumer);
      disk->Write(sector, data.size() / kSector, data.data());
    } catch (const Common::Error&) {
      EXPECT_LE(budget, file.Changes());
    }
    return file.Changes();
  }
  // Every sector of `copy` is that of `before` or of `after`, and at least
  // one of each kind appears only when `budget` allows.
  void ExpectOldOrNew(const std::string& copy, const std::string& before, const std::string& after) {
    const std::string now = ReadAll(copy);
    for (std::size_t s = 0; s < kSize / kSector; ++s) {
      const auto at = s * kSector;
      const bool old = now.compare(at, kSector, before, at, kSector) == 0;
      const bool fresh = now.compare(at, kSector, after, at, kSector) == 0;
      ASSERT_TRUE(old || fresh) << "sector " << s;
    }
  }

  // A write from the middle of block 1 into the middle of block 2, both
  // unallocated, the first block holding data of its own.
  void RunEveryCut(const std::string& name, bool qemuReads) {
    const std::uint64_t sector = kBlockSectors + kBlockSectors / 2;
    const std::string data = Pattern(kBlockSectors, 0x40);
    const std::string before = ReadAll(name);
    std::string after = before;
    after.replace(sector * kSector, data.size(), data);

    const std::uint64_t changes = CutWrite(name, "whole.vhdx", UINT64_MAX, sector, data);
    EXPECT_EQ(ReadAll("whole.vhdx"), after);
    ASSERT_GE(changes, 5u);  // headers, two blocks with their expansions, BAT
    for (std::uint64_t k = 0; k <= changes; ++k) {
      SCOPED_TRACE("cut after " + std::to_string(k) + " of " + std::to_string(changes));
      const std::string copy = "cut" + std::to_string(k) + ".vhdx";
      CutWrite(name, copy, k, sector, data);
      ExpectOldOrNew(copy, before, after);
      if (k == changes) {
        EXPECT_EQ(ReadAll(copy), after);
      }
      if (qemuReads && haveQemu) {
        // Both header copies carry sequence number 0, as this engine always
        // writes them. Cut between the two copies of the write-GUID renewal,
        // the file holds two valid headers with equal numbers and different
        // GUIDs: this engine takes index 0 (the old header, so the old
        // data), while qemu refuses to choose. Every other cut must satisfy
        // qemu.
        const HostTest::Outcome check = HostTest::Shell("qemu-img check -f vhdx " + dir.Join(copy));
        if (k == 1) {
          EXPECT_NE(check.output.find("No valid VHDX header"), std::string::npos) << check.output;
        } else {
          EXPECT_EQ(check.status, 0) << check.output;
        }
      }
    }
  }

  const bool haveQemu = HostTest::Have("qemu-img");
};

TEST_F(WriteRecoveryTest, DynamicFileShowsOldOrNewDataAfterEveryCut) {
  CreateDisk("dynamic.vhdx", kSize);
  Write("dynamic.vhdx", 0, Pattern(kBlockSectors, 0x10));
  RunEveryCut("dynamic.vhdx", true);
}

// The same write into a differencing file also makes the chunk's sector
// bitmap; the parent's data shows through where the child has none.
TEST_F(WriteRecoveryTest, DifferencingFileShowsOldOrNewDataAfterEveryCut) {
  CreateDisk("parent.vhdx", kSize);
  Write("parent.vhdx", 0, Pattern(3 * kBlockSectors, 0x20));
  CreateChild("child.vhdx", "parent.vhdx", kSize);
  Write("child.vhdx", 5, Pattern(10, 0x30));
  RunEveryCut("child.vhdx", false);
}

}  // namespace
