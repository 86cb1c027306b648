// The file tracker against the file system: what it reports for writes made
// through its folders, behind its back, and by a process that died.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <memory>
#include <random>

#include "host/written_ranges.h"
#include "temp_dir.h"
#include "vellumrig/file_tracker.h"

namespace {

using Regions = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

class FileTrackerTest : public ::testing::Test {
 public:
  void SetUp() override {
    HostTest::WriteBytes(data_.Join("disk.img"), std::string(64 * 1024, 'x'));
    Reopen();
    ASSERT_TRUE(tracker_->Track(data_.Wide()).IsEmpty());
  }

  void Reopen() {
    tracker_.reset();
    Common::Error error;
    tracker_ = Host::OpenTracker(db_.Wide("tracker.db"), error);
    ASSERT_TRUE(tracker_) << Common::ToUtf8(error.GetText());
  }

  std::string Id() {
    std::string id;
    EXPECT_TRUE(tracker_->GetCurrentChangeID(id).IsEmpty());
    return id;
  }

  std::unique_ptr<rio_file> OpenTracked(const std::string& name) {
    auto folder = tracker_->OpenFolder(data_.Wide());
    auto file = folder->OpenFile(Common::FromUtf8(name), kOpenReadWrite);
    return std::unique_ptr<rio_file>(dynamic_cast<rio_file*>(file.release()));
  }

  // "full", or the regions as "start-end " pairs.
  std::string Changes(const std::string& id, const std::string& name = "disk.img") {
    std::unique_ptr<ChangedFile> changed;
    const Common::Error error = tracker_->GetChangedFile(id, data_.Wide(name), changed);
    if (error) return "error " + std::to_string(error.Code());
    if (!changed) return "none";
    bool full = false;
    std::uint32_t count = 0;
    Regions regions;
    EXPECT_TRUE(changed->IsFull(full).IsEmpty());
    if (full) return "full";
    EXPECT_TRUE(changed->GetRegionCount(count).IsEmpty());
    EXPECT_TRUE(changed->GetRegions(0, count, regions).IsEmpty());
    std::string text;
    for (const auto& [start, end] : regions) text += std::to_string(start) + "-" + std::to_string(end) + " ";
    return text;
  }

  HostTest::TempDir data_, db_;
  std::unique_ptr<Host::TrackingHost> tracker_;
};

TEST_F(FileTrackerTest, WritesShowForTheEarlierIdMergedAndNotForTheNextOne) {
  const std::string before = Id();
  auto file = OpenTracked("disk.img");
  ASSERT_TRUE(file);
  file->Seek(4096);
  file->Write(std::string(100, 'a').data(), 100);
  file->Write(std::string(50, 'b').data(), 50);  // adjacent: one region
  file->Seek(10000);
  file->Write("z", 1);
  // Still open: this process's writes in memory are told too.
  EXPECT_EQ(Changes(before), "4096-4246 10000-10001 ");
  file->Truncate(70000);  // growth counts from the old end
  file.reset();
  const std::string after = Id();
  EXPECT_EQ(Changes(before), "4096-4246 10000-10001 65536-70000 ");
  EXPECT_EQ(Changes(after), "");
  Reopen();  // the records outlive the object
  EXPECT_EQ(Changes(before), "4096-4246 10000-10001 65536-70000 ");
}

TEST_F(FileTrackerTest, WritesTheTrackerCouldNotSeeReportTheWholeFileForOlderIds) {
  const struct {
    const char* name;
    void (*write)(FileTrackerTest&);
  } cases[] = {
      {"a plain write behind the tracker's back",
       [](FileTrackerTest& t) {
         const int fd = ::open(t.data_.Join("disk.img").c_str(), O_WRONLY);
         ASSERT_EQ(::pwrite(fd, "q", 1, 5), 1);
         ::close(fd);
       }},
      {"a writer killed before it closed",
       [](FileTrackerTest& t) {
         const pid_t child = ::fork();
         ASSERT_GE(child, 0);
         if (child == 0) {
           auto file = t.OpenTracked("disk.img");
           file->Write("dead", 4);
           ::kill(::getpid(), SIGKILL);
         }
         int status = 0;
         ASSERT_EQ(::waitpid(child, &status, 0), child);
         ASSERT_TRUE(WIFSIGNALED(status));
         t.Reopen();
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string before = Id();
    c.write(*this);
    EXPECT_EQ(Changes(before), "full");
    const std::string after = Id();
    EXPECT_EQ(Changes(after), "") << "exact again for IDs taken once it was noticed";
    EXPECT_EQ(Changes(before), "full");
  }
}

TEST_F(FileTrackerTest, ForeignAndFutureIdsFailAndUnseenFilesAreNotTracked) {
  const std::string id = Id();
  const std::string generation = id.substr(id.find(':'));
  EXPECT_EQ(Changes("0123456789abcdef0123456789abcdef" + generation),
            "error " + std::to_string(Host::TrackerError::ForeignChangeId));
  EXPECT_EQ(Changes("*"), "error " + std::to_string(Host::TrackerError::ForeignChangeId));
  EXPECT_EQ(Changes(id.substr(0, id.find(':')) + ":999"),
            "error " + std::to_string(Host::TrackerError::FutureChangeId));

  HostTest::WriteBytes(data_.Join("later.img"), "made by another program");
  bool tracked = true;
  ASSERT_TRUE(tracker_->IsTracked(data_.Wide("later.img"), tracked).IsEmpty());
  EXPECT_FALSE(tracked);
  EXPECT_EQ(Changes(id, "later.img"), "none");

  // Created through the tracker: tracked, and all new for the older ID.
  auto created = tracker_->OpenFolder(data_.Wide())->CreateFile(u"new.img", 0, 0);
  created->Write("n", 1);
  created.reset();
  EXPECT_EQ(Changes(id, "new.img"), "full");
}

TEST(WrittenRangesTest, PastTheLimitRangesWidenButStillCoverEveryWrite) {
  Host::detail::WrittenRanges ranges(64);
  std::mt19937_64 random(7);
  Regions written;
  for (int i = 0; i < 5000; ++i) {
    const std::uint64_t at = random() % (1ull << 36);
    written.emplace_back(at, at + 4096);
    ranges.Add(at, at + 4096);
    ASSERT_LE(ranges.Count(), 64u);
  }
  const Regions kept = ranges.Take();
  for (const auto& [start, end] : written) {
    auto it = std::upper_bound(kept.begin(), kept.end(), std::make_pair(start, UINT64_MAX));
    ASSERT_NE(it, kept.begin());
    --it;
    EXPECT_TRUE(it->first <= start && end <= it->second) << start;
  }
}

}  // namespace
