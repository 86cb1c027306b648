#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <utility>
#include <cerrno>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"

// Regular files rarely give short transfers or EINTR, so this program puts
// its own pread and pwrite in front of the system's: while armed they move
// at most three bytes a call and fail every other call with EINTR.
static std::atomic<bool> g_armed{false};
static std::atomic<int> g_calls{0};

static bool Interrupted() {
  if (g_calls.fetch_add(1) % 2 == 0) return false;
  errno = EINTR;
  return true;
}

extern "C" ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
  static const auto real = reinterpret_cast<decltype(&pread)>(::dlsym(RTLD_NEXT, "pread"));
  if (!g_armed) return real(fd, buffer, size, offset);
  return Interrupted() ? -1 : real(fd, buffer, std::min<size_t>(size, 3), offset);
}

extern "C" ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
  static const auto real = reinterpret_cast<decltype(&pwrite)>(::dlsym(RTLD_NEXT, "pwrite"));
  if (!g_armed) return real(fd, buffer, size, offset);
  return Interrupted() ? -1 : real(fd, buffer, std::min<size_t>(size, 3), offset);
}

namespace {

using namespace HostTest;

class PosixFileTest : public ::testing::Test {
 protected:
  TempDir dir_;
  std::unique_ptr<rio_dir> folder_ = Host::OpenFolder(dir_.Wide());
  std::unique_ptr<rio_file> file_ = folder_->CreateFile(u"data.bin", 0, 0);
};

// Every transfer here is cut short or interrupted by the guard above.
TEST_F(PosixFileTest, WritesReadsAndTruncatesAtTheKeptPositionWhateverTheSystemDoes) {
  g_armed = true;
  EXPECT_EQ(file_->Write("hello world", 11), 11u);
  // A write past the end leaves a gap of zeros; Size does not move the position.
  file_->Seek(16);
  EXPECT_EQ(file_->Write("!", 1), 1u);
  EXPECT_EQ(file_->Size(), 17u);
  EXPECT_EQ(file_->SeekCurrent(-11), 6);
  char buffer[32] = {};
  EXPECT_EQ(std::string(buffer, file_->Read(buffer, 5)), "world");
  EXPECT_EQ(file_->SeekEnd(-6), 11);
  EXPECT_EQ(std::string(buffer, file_->Read(buffer, sizeof buffer)), std::string(5, '\0') + "!");
  // At the end, and at a negative position, nothing comes and nothing fails.
  EXPECT_EQ(file_->Read(buffer, sizeof buffer), 0u);
  file_->Seek(-4);
  EXPECT_EQ(file_->Read(buffer, sizeof buffer), 0u);
  file_->Flush();
  EXPECT_FALSE(file_->Failed());
  g_armed = false;
  EXPECT_GT(g_calls, 12) << "the transfers must have been cut up";

  file_->Seek(6);
  file_->Truncate(3);
  EXPECT_EQ(file_->Size(), 3u);
  file_->Truncate(5);
  EXPECT_EQ(file_->SeekCurrent(0), 6);
  EXPECT_EQ(ReadBytes(dir_.Join("data.bin")), std::string("hel\0\0", 5));
  // Beyond what a file offset can hold: a write error.
  file_->Truncate(UINT64_MAX);
  EXPECT_EQ(file_->Status.Code(), FileError::DiskFull);
  EXPECT_EQ(CauseErrno(file_->Status), EFBIG);
}

// A writer keeps every other open out, readers keep writers out, and the
// refusal names the file and says it is in use. Explicit locks come on top.
TEST_F(PosixFileTest, OpensLockTheFileLocksConflictAndTheFirstFailureStays) {
  file_->Write("content", 7);
  const auto open = [&](std::uint32_t mode) {
    std::unique_ptr<i_file> file = folder_->OpenFile(u"data.bin", mode);
    const Common::Error error = folder_->TakeError();
    return std::make_pair(std::unique_ptr<ri_file>(dynamic_cast<ri_file*>(file.release())), error);
  };
  for (const std::uint32_t mode : {kOpenRead, kOpenReadWrite}) {
    auto [refused, error] = open(mode);
    EXPECT_FALSE(refused);
    EXPECT_EQ(error.Code(), FileError::LockFailed);
    EXPECT_EQ(error.GetText(), u"The file is in use by another program.");
    EXPECT_EQ(FileNameOf(error), dir_.Wide() + u"/data.bin");
  }
  EXPECT_FALSE(folder_->CreateFile(u"data.bin", 0, 0)) << "in use: not emptied";
  folder_->TakeError();
  file_.reset();
  std::unique_ptr<ri_file> reader1 = open(kOpenRead).first, reader2 = open(kOpenRead).first;
  ASSERT_TRUE(reader1 && reader2);
  EXPECT_EQ(open(kOpenReadWrite).second.Code(), FileError::LockFailed);
  reader2.reset();
  reader1->LockShared();
  EXPECT_FALSE(reader1->Failed());
  EXPECT_FALSE(open(kOpenReadWrite).first) << "a reader keeps writers out";
  reader1.reset();
  file_ = std::unique_ptr<rio_file>(dynamic_cast<rio_file*>(open(kOpenReadWrite).first.release()));
  ASSERT_TRUE(file_);
  {
    // An explicit lock is a separate kind: a second descriptor of this
    // process opened past the open lock stands for another program.
    const int fd = ::open(dir_.Join("data.bin").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::flock(fd, LOCK_SH), 0);
    file_->LockExclusive();
    ::close(fd);
  }
  const Common::Error error = file_->Status;
  EXPECT_EQ(error.Code(), FileError::LockFailed);
  EXPECT_EQ(CauseErrno(error), EWOULDBLOCK);

  // A failed file does nothing, and a later failure does not replace the first.
  char buffer[8];
  file_->Seek(0);
  EXPECT_EQ(file_->Read(buffer, sizeof buffer) + file_->Write("zz", 2) + file_->Size(), 0u);
  file_->Truncate(1);
  file_->SeekCurrent(INT64_MAX);
  file_->SeekCurrent(INT64_MAX);
  EXPECT_EQ(file_->Status.Record(), error.Record());
  EXPECT_EQ(ReadBytes(dir_.Join("data.bin")), "content");
  file_->TakeError();
  file_->LockExclusive();
  file_->Unlock();
  EXPECT_FALSE(file_->Failed()) << "closing let the explicit lock go";
}

// Devices and FIFOs are refused at once (opening a FIFO would wait for a
// writer); a file-size limit (SIGXFSZ ignored, in a child so that the test
// runner keeps its limits) takes part of a write and says the disk is full.
TEST_F(PosixFileTest, NonFilesAreRefusedAtOnceAndAFileSizeLimitSaysDiskIsFull) {
  ASSERT_EQ(::mkfifo(dir_.Join("fifo").c_str(), 0600), 0);
  for (const auto& [folder, name] : {std::pair<std::u16string, std::u16string>{u"/dev", u"full"},
                                     {Common::FromUtf8(dir_.Path()), u"fifo"}}) {
    auto opened = Host::OpenFolder(folder)->CreateFile(name, 0, 0);
    EXPECT_FALSE(opened);
    auto read = Host::OpenFolder(folder, true);
    EXPECT_FALSE(read->OpenFile(name, kOpenRead));
    EXPECT_EQ(read->Status.Code(), FileError::Open);
    EXPECT_EQ(Common::ToUtf8(read->Status.GetText()).find("Not a regular file"), 0u) << name.size();
  }

  InChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, 4096};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
    const std::string block(6000, 'v');
    if (file_->Write(block.data(), block.size()) != 4096) return 11;
    if (file_->Status.Code() != FileError::DiskFull) return 12;
    if (file_->Status.GetText() != u"Disk is full.") return 13;
    return CauseErrno(file_->Status) == EFBIG ? 0 : 14;
  });
  EXPECT_EQ(ReadBytes(dir_.Join("data.bin")), std::string(4096, 'v'));
}

}  // namespace
