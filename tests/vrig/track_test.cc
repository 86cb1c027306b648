// vrig track as a backup script would use it, with qemu-io writing a
// container behind the tracker's back.
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vrig_run.h"

namespace {

HostTest::Outcome Track(const std::string& arguments, const std::string& input = "") {
  const std::string feed = input.empty() ? "" : "printf '" + input + "' | ";
  return HostTest::Shell(feed + "env LANGUAGE=en " VRIG_PATH " track " + arguments);
}

TEST(VrigTrackTest, WritesThroughTheTrackerAreExactAndQemuWritesReportFull) {
  HostTest::TempDir dir;
  const std::string db = dir.Join("tracker.db"), data = dir.Join("data");
  ASSERT_EQ(::mkdir(data.c_str(), 0755), 0);
  HostTest::WriteBytes(data + "/f.bin", std::string(4096, '\0'));
  const bool qemu = HostTest::Have("qemu-img") && HostTest::Have("qemu-io");
  if (qemu) {
    ASSERT_EQ(HostTest::Shell("qemu-img create -q -f vhdx " + data + "/c.vhdx 64M").status, 0);
  }
  ASSERT_EQ(Track("start " + db + " " + data).status, 0);
  const std::string id = Track("id " + db).output;
  ASSERT_EQ(id.back(), '\n');
  const std::string before = id.substr(0, id.size() - 1);

  ASSERT_EQ(Track("write " + db + " " + data + "/f.bin 100", "hello").status, 0);
  ASSERT_EQ(Track("write " + db + " " + data + "/f.bin 105", "x").status, 0);
  EXPECT_EQ(Track("changes " + db + " " + data + "/f.bin " + before).output, "100 106\n");
  if (qemu) {
    EXPECT_EQ(Track("changes " + db + " " + data + "/c.vhdx " + before).output, "");
    ASSERT_EQ(HostTest::Shell("qemu-io -f vhdx -c 'write 0 4k' " + data + "/c.vhdx").status, 0);
    EXPECT_EQ(Track("changes " + db + " " + data + "/c.vhdx " + before).output, "full\n");
  }

  VrigTest::ExpectRun(Track("changes " + db + " " + db + " " + before), 1, "is not tracked by the file tracker.");
}

}  // namespace
