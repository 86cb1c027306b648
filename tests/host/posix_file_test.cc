#include <signal.h>
#include <sys/resource.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/file.h"
#include "vellumrig/host.h"

namespace {

using HostTest::CauseErrno;
using HostTest::FileNameOf;
using HostTest::InChild;
using HostTest::ReadBytes;
using HostTest::TempDir;
using HostTest::WriteBytes;

std::unique_ptr<rio_file> OpenReadWrite(rio_dir& folder, const std::u16string& name) {
  std::unique_ptr<i_file> file = folder.OpenFile(name, kOpenReadWrite);
  auto* rw = dynamic_cast<rio_file*>(file.get());
  if (!rw) return nullptr;
  file.release();
  return std::unique_ptr<rio_file>(rw);
}

std::unique_ptr<ri_file> OpenRead(rio_dir& folder, const std::u16string& name) {
  std::unique_ptr<i_file> file = folder.OpenFile(name, kOpenRead);
  auto* r = dynamic_cast<ri_file*>(file.get());
  if (!r) return nullptr;
  file.release();
  return std::unique_ptr<ri_file>(r);
}

class PosixFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = Host::OpenFolder(dir_.Wide());
    ASSERT_TRUE(folder_);
  }
  TempDir dir_;
  std::unique_ptr<rio_dir> folder_;
};

TEST_F(PosixFileTest, WritesAndReadsAtTheKeptPosition) {
  std::unique_ptr<rio_file> file = folder_->CreateFile(u"data.bin", 0, 0);
  ASSERT_TRUE(file) << Common::ToUtf8(folder_->TakeError().GetText());

  EXPECT_EQ(file->Write("hello world", 11), 11u);
  EXPECT_EQ(file->SeekCurrent(0), 11);
  // A write past the end leaves a gap of zeros, as any file does.
  EXPECT_EQ(file->Seek(16), 16);
  EXPECT_EQ(file->Write("!", 1), 1u);
  EXPECT_EQ(file->Size(), 17u);
  EXPECT_EQ(file->SeekCurrent(0), 17) << "Size must not move the position";

  EXPECT_EQ(file->Seek(6), 6);
  char buffer[32] = {};
  EXPECT_EQ(file->Read(buffer, 5), 5u);
  EXPECT_EQ(std::string(buffer, 5), "world");
  EXPECT_EQ(file->SeekCurrent(-5), 6);
  EXPECT_EQ(file->SeekEnd(-6), 11);
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 6u);
  EXPECT_EQ(std::string(buffer, 6), std::string(5, '\0') + "!");
  // At the end: nothing, and no failure.
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 0u);
  // A negative position reads as the end of data too.
  file->Seek(-4);
  EXPECT_EQ(file->Read(buffer, sizeof buffer), 0u);
  EXPECT_FALSE(file->Failed());

  file->Rewind();
  EXPECT_EQ(file->SeekCurrent(0), 0);
  file->Flush();
  EXPECT_FALSE(file->Failed());
  file.reset();
  EXPECT_EQ(ReadBytes(dir_.Join("data.bin")), "hello world" + std::string(5, '\0') + "!");
}

TEST_F(PosixFileTest, TruncateResizesWithoutMovingThePosition) {
  WriteBytes(dir_.Join("t.bin"), "abcdefgh");
  std::unique_ptr<rio_file> file = OpenReadWrite(*folder_, u"t.bin");
  ASSERT_TRUE(file);
  file->Seek(6);
  file->Truncate(3);
  EXPECT_EQ(file->Size(), 3u);
  EXPECT_EQ(file->SeekCurrent(0), 6);
  file->Truncate(5);
  EXPECT_EQ(file->Size(), 5u);
  EXPECT_FALSE(file->Failed());
  EXPECT_EQ(ReadBytes(dir_.Join("t.bin")), std::string("abc\0\0", 5));

  // Beyond what a file offset can hold: a write error, kept.
  file->Truncate(UINT64_MAX);
  EXPECT_EQ(file->Status.Code(), FileError::DiskFull);
  EXPECT_EQ(CauseErrno(file->Status), EFBIG);
}

TEST_F(PosixFileTest, TheFirstFailureStaysAndLaterOperationsReportNothing) {
  WriteBytes(dir_.Join("locked.bin"), "content");
  std::unique_ptr<rio_file> owner = OpenReadWrite(*folder_, u"locked.bin");
  std::unique_ptr<rio_file> other = OpenReadWrite(*folder_, u"locked.bin");
  ASSERT_TRUE(owner && other);

  owner->LockExclusive();
  ASSERT_FALSE(owner->Failed());
  other->LockExclusive();
  ASSERT_TRUE(other->Failed());
  EXPECT_EQ(other->Status.Code(), FileError::LockFailed);
  EXPECT_EQ(other->Status.GetText(), u"Failed to lock the file.");
  EXPECT_EQ(CauseErrno(other->Status), EWOULDBLOCK);
  EXPECT_EQ(FileNameOf(other->Status), dir_.Wide("locked.bin"));

  char buffer[8];
  EXPECT_EQ(other->Read(buffer, sizeof buffer), 0u);
  EXPECT_EQ(other->Write("zz", 2), 0u);
  EXPECT_EQ(other->Size(), 0u);
  other->Truncate(1);
  other->Flush();
  // A second, different failure does not replace the first.
  other->SeekCurrent(INT64_MAX);
  other->SeekCurrent(INT64_MAX);
  EXPECT_EQ(other->Status.Code(), FileError::LockFailed);
  EXPECT_EQ(ReadBytes(dir_.Join("locked.bin")), "content");

  // Taking the error makes the file usable again.
  EXPECT_EQ(other->TakeError().Code(), FileError::LockFailed);
  other->Seek(0);
  EXPECT_EQ(other->Read(buffer, 7), 7u);
}

TEST_F(PosixFileTest, LocksConflictAcrossOpenFilesAndUnlockReleases) {
  WriteBytes(dir_.Join("l.bin"), "x");
  std::unique_ptr<ri_file> reader1 = OpenRead(*folder_, u"l.bin");
  std::unique_ptr<ri_file> reader2 = OpenRead(*folder_, u"l.bin");
  std::unique_ptr<rio_file> writer = OpenReadWrite(*folder_, u"l.bin");
  ASSERT_TRUE(reader1 && reader2 && writer);

  reader1->LockShared();
  reader2->LockShared();
  EXPECT_FALSE(reader1->Failed());
  EXPECT_FALSE(reader2->Failed()) << "shared locks go together";
  writer->LockExclusive();
  EXPECT_EQ(writer->TakeError().Code(), FileError::LockFailed);

  reader1->Unlock();
  reader2->Unlock();
  EXPECT_FALSE(reader1->Failed() || reader2->Failed());
  writer->LockExclusive();
  EXPECT_FALSE(writer->Failed());
  reader1->LockShared();
  EXPECT_EQ(reader1->Status.Code(), FileError::LockFailed);

  // Closing a file lets its lock go.
  writer.reset();
  reader2->LockShared();
  EXPECT_FALSE(reader2->Failed());
}

// /dev/full takes no byte: every write fails with ENOSPC.
TEST(PosixFileDiskFullTest, AFullDeviceSaysDiskIsFull) {
  std::unique_ptr<rio_dir> dev = Host::OpenFolder(u"/dev");
  ASSERT_TRUE(dev);
  std::unique_ptr<rio_file> full = OpenReadWrite(*dev, u"full");
  if (!full) GTEST_SKIP() << "no /dev/full here";
  full->Flush();
  EXPECT_FALSE(full->Failed()) << "a device has nothing to put on disk";

  EXPECT_EQ(full->Write("data", 4), 0u);
  const Common::Error error = full->Status;
  EXPECT_EQ(error.Code(), FileError::DiskFull);
  EXPECT_EQ(error.GetText(), u"Disk is full.");
  EXPECT_EQ(FileNameOf(error), u"/dev/full");
  EXPECT_EQ(error.Reason().Code(), Common::kWindowsErrorCode);
  EXPECT_EQ(CauseErrno(error), ENOSPC);
  EXPECT_EQ(error.Reason().GetText(), Common::FromUtf8(std::strerror(ENOSPC)));
  EXPECT_EQ(full->Write("data", 4), 0u);
  EXPECT_EQ(full->Status.Record(), error.Record()) << "the first failure must stay";
}

// A file-size limit makes writes beyond it fail with EFBIG (SIGXFSZ being
// ignored); run in a child so the limit does not touch the test runner.
TEST_F(PosixFileTest, AFileSizeLimitSaysDiskIsFull) {
  std::unique_ptr<rio_file> file = folder_->CreateFile(u"limited.bin", 0, 0);
  ASSERT_TRUE(file);
  InChild([&] {
    ::signal(SIGXFSZ, SIG_IGN);
    const struct rlimit limit = {4096, 4096};
    if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return 10;
    const std::string block(6000, 'v');
    // Part of the write fits; the count tells how much.
    if (file->Write(block.data(), block.size()) != 4096) return 11;
    if (file->Status.Code() != FileError::DiskFull) return 12;
    if (file->Status.GetText() != u"Disk is full.") return 13;
    if (CauseErrno(file->Status) != EFBIG) return 14;
    return file->Write("v", 1) == 0 ? 0 : 15;
  });
  EXPECT_EQ(ReadBytes(dir_.Join("limited.bin")), std::string(4096, 'v'));
}

}  // namespace
