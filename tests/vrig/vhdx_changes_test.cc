// Incremental backups with vrig: containers written through the tracker,
// the sectors changed since a change ID, and exports of only those into an
// earlier full export. Writes the tracker could not follow must make it
// report more, never less.
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"

namespace {

using HostTest::Outcome;
using HostTest::Shell;

class VhdxChangesTest : public ::testing::Test {
 protected:
  // A 64 MiB container holding 8 MiB of data, in a freshly tracked folder;
  // later writes land in blocks that are already there.
  void SetUp() override {
    std::filesystem::remove_all(data);
    std::filesystem::remove(db);
    std::filesystem::create_directory(data);
    Run("vhdx create " + disk + " 64M");
    Run("vhdx write " + disk + " 0 < " + Bytes("urandom", 8 << 20));
    Run("track start " + db + " " + data);
    const std::string line = Run("track id " + db);
    id = line.substr(0, line.size() - 1);
  }

  Outcome Vrig(const std::string& arguments) { return Shell("env LANGUAGE=en " VRIG_PATH " " + arguments); }
  std::string Run(const std::string& arguments) {
    const Outcome run = Vrig(arguments);
    EXPECT_EQ(run.status, 0) << arguments << "\n" << run.output;
    return run.output;
  }
  std::string Changes(const std::string& since) {
    return Run("vhdx changes " + disk + " '" + since + "'" + (since == "*" ? "" : " --tracker " + db));
  }
  // `size` bytes from /dev/<source>, outside the tracked folder.
  std::string Bytes(const std::string& source, std::size_t size) {
    const std::string path = dir.Join(source + std::to_string(size));
    EXPECT_EQ(Shell("head -c " + std::to_string(size) + " /dev/" + source + " > " + path).status, 0);
    return path;
  }
  void TrackedWrite(std::uint64_t sector, const std::string& source, std::size_t sectors) {
    Run("vhdx write " + disk + " " + std::to_string(sector) + " --tracker " + db + " < " + Bytes(source, sectors * 512));
  }

  HostTest::TempDir dir;
  const std::string db = dir.Join("tracker.db"), data = dir.Join("data"), disk = data + "/c.vhdx";
  std::string id;
};

TEST_F(VhdxChangesTest, AnIncrementalExportEqualsAFreshFullExport) {
  const std::string backup = dir.Join("backup.raw"), before = backup + ".before", fresh = dir.Join("fresh.raw");
  Run("vhdx export " + disk + " " + backup);
  ASSERT_EQ(Shell("cp --sparse=always " + backup + " " + before).status, 0);
  TrackedWrite(100, "urandom", 8);
  TrackedWrite(9000, "zero", 16);  // zeros over data: the backup must lose the old bytes too
  EXPECT_EQ(Changes(id), "100 8\n9000 16\ntotal 24 sectors of 512 bytes\n");

  // Refused before anything is written: no tracker, or an image of another size.
  const std::string since = "vhdx export " + disk + " " + backup + " --since '" + id + "'";
  const Outcome untracked = Vrig(since);
  EXPECT_EQ(untracked.status, 1);
  const std::string cause = ": Failed to get changes of the virtual disk. The file tracker is not found.\n";
  EXPECT_EQ(untracked.output, "vrig: cannot export '" + disk + "' to '" + backup + "'" + cause);
  EXPECT_EQ(Vrig("vhdx changes " + disk + " '" + id + "'").output,
            "vrig: cannot list the changes of '" + disk + "'" + cause);
  const std::string small = Bytes("zero", 4096);
  const Outcome other = Vrig("vhdx export " + disk + " " + small + " --since '" + id + "' --tracker " + db);
  EXPECT_NE(other.output.find("not the disk's 67108864; nothing was written"), std::string::npos) << other.output;
  EXPECT_EQ(HostTest::ReadBytes(small), std::string(4096, '\0'));
  EXPECT_EQ(Shell("cmp " + backup + " " + before).status, 0);

  EXPECT_NE(Run(since + " --tracker " + db).find("24 sectors copied\n"), std::string::npos);
  Run("vhdx export " + disk + " " + fresh);
  EXPECT_EQ(Shell("cmp " + backup + " " + fresh).status, 0);
}

// A writer killed mid-way leaves the tracker's mark behind, and qemu-io
// knows nothing of the tracker: either way the file counts as wholly
// changed, and the answer is all the data it holds.
TEST_F(VhdxChangesTest, WritesTheTrackerCouldNotFollowMakeTheFileFull) {
  const std::string fifo = dir.Join("feed");
  const struct {
    bool qemu;
    std::string command;
    const char* held;  // as changes "*" prints it
  } cases[] = {
      // Once head is done, vrig has written the first 16 MiB it read and waits for more.
      {false,
       "rm -f " + fifo + "; mkfifo " + fifo + " && (" VRIG_PATH " vhdx write " + disk + " 0 --tracker " + db + " < " +
           fifo + " & pid=$!; exec 3>" + fifo + "; head -c 20M " + Bytes("urandom", 20 << 20) +
           " >&3; kill -9 $pid; wait $pid; echo status $?)",
       "0 32768\ntotal 32768 sectors of 512 bytes\n"},
      {true, "qemu-io -f vhdx -c 'write -q -P 7 32M 64k' " + disk + " && echo status 137",
       "0 16384\n65536 8192\ntotal 24576 sectors of 512 bytes\n"},
  };
  for (const auto& c : cases) {
    if (c.qemu && !HostTest::Have("qemu-io")) continue;
    SetUp();
    TrackedWrite(100, "urandom", 8);
    EXPECT_EQ(Changes(id), "100 8\ntotal 8 sectors of 512 bytes\n");
    const Outcome run = Shell(c.command);
    ASSERT_TRUE(run.output.ends_with("status 137\n")) << run.output;  // 137: SIGKILL
    EXPECT_EQ(Changes("*"), c.held) << c.command;
    EXPECT_EQ(Changes(id), c.held) << c.command;
  }
}

}  // namespace
