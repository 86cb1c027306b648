#include <string>

#include <gtest/gtest.h>

#include "common/file_errors.h"
#include "common/site.h"
#include "vhdx/change_tracking_file.h"
#include "vhdx/test_files.h"
#include "vhdx/write_protected_file.h"
#include "vhdx/writeable_file.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::ScriptedFile;

TEST(WriteableFileTest, TransfersCompleteAcrossShortCalls) {
  ScriptedFile raw;
  raw.Step = 3;
  Vhdx::WriteableFile file(raw);
  file.Write(5, 11, "eleven byte");
  EXPECT_EQ(raw.Writes.size(), 4u);
  EXPECT_EQ(file.GetSize(), 16u);
  std::string back(11, '\0');
  file.Read(5, back.size(), back.data());
  EXPECT_EQ(back, "eleven byte");
}

TEST(WriteableFileTest, EndOfFileAndAFullMediumRaiseTheirOwnErrors) {
  ScriptedFile raw;
  raw.WriteLimit = 10;
  Vhdx::WriteableFile file(raw);
  char buffer[8] = {};
  const Common::Error eof = VhdxTest::Raised([&] { file.Read(0, 1, buffer); });
  EXPECT_EQ(eof.Code(), 0x40002u);
  EXPECT_EQ(eof.GetText(), u"The end of the file has been reached.");
  const Common::Error full = VhdxTest::Raised([&] { file.Write(6, 8, "abcdefgh"); });
  EXPECT_EQ(full.Code(), 0x40004u);
  EXPECT_EQ(full.GetText(), u"The disk is full.");
  // What fitted went in, and the file object took no failure: it goes on.
  EXPECT_FALSE(raw.Failed());
  file.Read(6, 4, buffer);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
}

TEST(WriteableFileTest, RaisesWhatTheFileObjectHoldsAndRefusesUnnamableOffsets) {
  ScriptedFile raw;
  Vhdx::WriteableFile file(raw);
  char c = 0;
  EXPECT_EQ(CodeOf([&] { file.Read(UINT64_MAX - 1, 1, &c); }), FileError::Seek);
  EXPECT_EQ(CodeOf([&] { file.Write(INT64_MAX, 1, &c); }), FileError::Seek);
  EXPECT_TRUE(raw.Writes.empty());
  raw.Fail(Common::FileErrorOf(VR_SITE, FileError::Read));
  EXPECT_EQ(CodeOf([&] { file.Read(0, 1, &c); }), FileError::Read);
  EXPECT_EQ(CodeOf([&] { file.Write(0, 1, "x"); }), FileError::Read);
  EXPECT_EQ(CodeOf([&] { file.GetSize(); }), FileError::Read);
  EXPECT_EQ(CodeOf([&] { file.Expand(1); }), FileError::Read);
  EXPECT_EQ(CodeOf([&] { file.Flush(); }), FileError::Read);
}

TEST(WriteableFileTest, WriteZeroGoesIn4096BytePieces) {
  ScriptedFile raw;
  Vhdx::WriteableFile file(raw);
  file.Write(0, 12000, std::string(12000, '\x01').data());
  raw.Writes.clear();
  file.WriteZero(100, 10000);
  EXPECT_EQ(raw.Writes, (std::vector<std::size_t>{4096, 4096, 1808}));
  EXPECT_EQ(raw.Bytes(99, 10002), "\x01" + std::string(10000, '\0') + "\x01");
  raw.Writes.clear();
  file.WriteZero(0, 0);
  file.WriteZero(0, 8192);
  EXPECT_EQ(raw.Writes, (std::vector<std::size_t>{4096, 4096}));
}

// Both refuse every change, the raw one above the file object and the
// decorator above a file that could change.
TEST(ReadOnlyFileTest, ReadOnlyAndWriteProtectedFilesReadAndRefuseChanges) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  writable.Write(0, 7, "content");
  Vhdx::ReadOnlyFile readOnly(raw);
  Vhdx::WriteProtectedFile protectedFile(writable);
  for (Vhdx::File* file : std::vector<Vhdx::File*>{&readOnly, &protectedFile}) {
    char buffer[4];
    file->Read(3, 4, buffer);
    EXPECT_EQ(std::string(buffer, 4), "tent");
    EXPECT_EQ(file->GetSize(), 7u);
    EXPECT_EQ(VhdxTest::Raised([&] { file->Write(0, 1, "x"); }).GetText(),
              u"The file is read-only.");
    EXPECT_EQ(CodeOf([&] { file->WriteZero(0, 1); }), 0x4000Cu);
    EXPECT_EQ(CodeOf([&] { file->Expand(100); }), 0x4000Cu);
    EXPECT_EQ(CodeOf([&] { file->Flush(); }), 0x4000Cu);
  }
  EXPECT_EQ(raw.Writes.size(), 1u);
  EXPECT_EQ(raw.Store->Size(), 7u);
}

struct LoggingObserver : Vhdx::Observer {
  LoggingObserver(std::vector<std::string>& l, std::string n, bool r = false)
      : log(l), name(std::move(n)), raise(r) {}
  void Notify() override {
    log.push_back(name);
    if (raise) throw Common::Error(VR_SITE, 0x3C0000);
  }
  std::vector<std::string>& log;
  std::string name;
  bool raise;
};

TEST(ChangeTrackingFileTest, ChangesNotifyEveryObserverInOrderBeforeTheyHappen) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  VhdxTest::LoggingFile below(writable);
  Vhdx::ChangeTrackingFile file(below);
  // The observers log into the list of the file below: the order shows.
  file.Add(std::make_shared<LoggingObserver>(below.Log, "1"));
  file.Add(std::make_shared<LoggingObserver>(below.Log, "2"));
  file.Write(0, 4, "abcd");
  file.WriteZero(0, 2);
  file.Expand(4);  // the size stays, the notice comes all the same
  char buffer[4];
  file.Read(0, 4, buffer);
  EXPECT_EQ(file.GetSize(), 4u);
  file.Flush();
  EXPECT_EQ(below.Log,
            (std::vector<std::string>{"1", "2", "W 0 4", "1", "2", "Z 0 2", "1", "2", "E 4", "F"}));
}

TEST(ChangeTrackingFileTest, AnObserverThatRaisesStopsTheChange) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  Vhdx::ChangeTrackingFile file(writable);
  std::vector<std::string> log;
  file.Add(std::make_shared<LoggingObserver>(log, "refusing", true));
  file.Add(std::make_shared<LoggingObserver>(log, "later"));
  EXPECT_EQ(CodeOf([&] { file.Write(0, 1, "x"); }), 0x3C0000u);
  EXPECT_EQ(CodeOf([&] { file.Expand(10); }), 0x3C0000u);
  EXPECT_EQ(log, (std::vector<std::string>{"refusing", "refusing"}));
  EXPECT_TRUE(raw.Writes.empty());
  EXPECT_EQ(raw.Store->Size(), 0u);
}

}  // namespace
