// Incremental backups with vrig: containers written through the tracker,
// changed sectors asked for by change ID, and exports of only those sectors
// into an earlier full export. Writers that crash or go behind the tracker's
// back must make it report more, never less.
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"

namespace {

using HostTest::Outcome;
using HostTest::Shell;

class VhdxChangesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir(data.c_str(), 0755), 0);
    Run("vhdx create " + disk + " 64M");
    // 8 MiB of data before tracking starts, so that later writes land in
    // blocks that are already there.
    Run("vhdx write " + disk + " 0 < " + Bytes("random", 8 << 20));
    Run("track start " + db + " " + data);
  }

  Outcome Vrig(const std::string& arguments) { return Shell("env LANGUAGE=en " VRIG_PATH " " + arguments); }

  std::string Run(const std::string& arguments) {
    const Outcome run = Vrig(arguments);
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run.output;
    return run.output;
  }

  std::string ChangeId() {
    const std::string id = Run("track id " + db);
    return id.substr(0, id.size() - 1);
  }

  std::string Changes(const std::string& id) { return Run("vhdx changes " + disk + " '" + id + "' --tracker " + db); }

  // A file of `size` bytes from /dev/<source>, kept outside the tracked folder.
  std::string Bytes(const std::string& source, std::size_t size) {
    const std::string path = dir.Join(source + std::to_string(size));
    EXPECT_EQ(Shell("head -c " + std::to_string(size) + " /dev/" + source + " > " + path).status, 0);
    return path;
  }

  HostTest::TempDir dir;
  const std::string db = dir.Join("tracker.db"), data = dir.Join("data"), disk = data + "/c.vhdx";
};

TEST_F(VhdxChangesTest, AnIncrementalExportEqualsAFreshFullExport) {
  const std::string backup = dir.Join("backup.raw"), fresh = dir.Join("fresh.raw");
  Run("vhdx export " + disk + " " + backup);
  const std::string id = ChangeId();
  Run("vhdx write " + disk + " 100 --tracker " + db + " < " + Bytes("urandom", 8 * 512));
  // Zeros over data: the backup must lose the old bytes there too.
  Run("vhdx write " + disk + " 9000 --tracker " + db + " < " + Bytes("zero", 16 * 512));
  EXPECT_EQ(Changes(id), "100 8\n9000 16\ntotal 24 sectors of 512 bytes\n");

  // Refused before anything is written: no tracker, or an image of another size.
  ASSERT_EQ(Shell("cp --sparse=always " + backup + " " + backup + ".before").status, 0);
  const std::string since = "vhdx export " + disk + " " + backup + " --since '" + id + "'";
  const Outcome untracked = Vrig(since);
  EXPECT_EQ(untracked.status, 1);
  EXPECT_NE(untracked.output.find("Error code: 0x3C003B"), std::string::npos) << untracked.output;
  EXPECT_EQ(Vrig("vhdx changes " + disk + " '" + id + "'").output, untracked.output);
  const std::string small = Bytes("zero", 4096);
  const Outcome mismatch = Vrig("vhdx export " + disk + " " + small + " --since '" + id + "' --tracker " + db);
  EXPECT_EQ(mismatch.status, 1);
  EXPECT_NE(mismatch.output.find("not the disk's 67108864; nothing was written"), std::string::npos) << mismatch.output;
  EXPECT_EQ(HostTest::ReadBytes(small), std::string(4096, '\0'));
  EXPECT_EQ(Shell("cmp " + backup + " " + backup + ".before").status, 0);

  EXPECT_NE(Run(since + " --tracker " + db).find("24 sectors copied\n"), std::string::npos);
  Run("vhdx export " + disk + " " + fresh);
  EXPECT_EQ(Shell("cmp " + backup + " " + fresh).status, 0);
}

// A writer killed mid-way leaves the tracker's mark behind: the file counts
// as wholly changed, so the answer holds all it holds, whatever was written.
TEST_F(VhdxChangesTest, AKilledWriterLeavesTheFileFull) {
  const std::string id = ChangeId();
  const std::string fifo = dir.Join("feed");
  // Once `head` is done, vrig has taken the first 16 MiB and wrote them
  // before reading on, and then waits for more input.
  const Outcome killed = Shell("mkfifo " + fifo + " && (" VRIG_PATH " vhdx write " + disk + " 0 --tracker " + db +
                               " < " + fifo + " & pid=$!; exec 3>" + fifo + "; head -c 20M " +
                               Bytes("urandom", 20 << 20) + " >&3; kill -9 $pid; wait $pid; echo $?)");
  ASSERT_TRUE(killed.output.ends_with("137\n")) << killed.output;  // by SIGKILL
  const std::string all = Run("vhdx changes " + disk + " '*'");
  EXPECT_EQ(all.substr(0, 8), "0 32768\n") << all;
  EXPECT_EQ(Changes(id), all);
}

// qemu-io knows nothing of the tracker; the exact ranges written through it
// before no longer tell the whole story.
TEST_F(VhdxChangesTest, AWriteBehindTheTrackersBackLeavesTheFileFull) {
  if (!HostTest::Have("qemu-io")) GTEST_SKIP() << "qemu-io is missing (Debian qemu-utils)";
  const std::string id = ChangeId();
  Run("vhdx write " + disk + " 100 --tracker " + db + " < " + Bytes("urandom", 8 * 512));
  EXPECT_EQ(Changes(id), "100 8\ntotal 8 sectors of 512 bytes\n");
  ASSERT_EQ(Shell("qemu-io -f vhdx -c 'write -q -P 7 32M 64k' " + disk).status, 0);
  const std::string all = Run("vhdx changes " + disk + " '*'");
  EXPECT_EQ(all, "0 16384\n65536 8192\ntotal 24576 sectors of 512 bytes\n");
  EXPECT_EQ(Changes(id), all);
}

}  // namespace
