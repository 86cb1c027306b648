#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "common/file_errors.h"
#include "common/site.h"
#include "vhdx/file/change_tracking_file.h"
#include "vhdx/test_files.h"
#include "vhdx/file/write_protected_file.h"
#include "vhdx/file/writeable_file.h"

namespace {

using VhdxTest::CodeOf;
using VhdxTest::ScriptedFile;
using Log = std::vector<std::string>;

TEST(WriteableFileTest, TransfersCompleteAcrossShortCallsAndZeroesIn4096BytePieces) {
  ScriptedFile raw;
  raw.Step = 3;
  Vhdx::WriteableFile file(raw);
  file.Write(5, 11, "eleven byte");
  EXPECT_EQ(raw.Writes.size(), 4u);
  std::string back(11, '\0');
  file.Read(5, back.size(), back.data());
  EXPECT_EQ(back, "eleven byte");
  raw.Step = SIZE_MAX;
  file.Write(0, 12000, std::string(12000, '\x01').data());
  raw.Writes.clear();
  file.WriteZero(100, 10000);
  EXPECT_EQ(raw.Writes, (std::vector<std::size_t>{4096, 4096, 1808}));
  EXPECT_EQ(raw.Bytes(99, 10002), "\x01" + std::string(10000, '\0') + "\x01");
  EXPECT_EQ(file.GetSize(), 12000u);
}

TEST(WriteableFileTest, RaisesEndOfFileAFullMediumUnnamableOffsetsAndWhatTheFileObjectHolds) {
  ScriptedFile raw;
  raw.WriteLimit = 10;
  Vhdx::WriteableFile file(raw);
  char buffer[8] = {};
  const Common::Error eof = VhdxTest::Raised([&] { file.Read(0, 1, buffer); });
  EXPECT_EQ(eof.Code(), 0x40002u);
  EXPECT_EQ(eof.GetText(), u"The end of the file has been reached.");
  EXPECT_EQ(CodeOf([&] { file.Write(6, 8, "abcdefgh"); }), 0x40004u);
  // What fitted went in, and the file object took no failure: it goes on.
  EXPECT_FALSE(raw.Failed());
  file.Read(6, 4, buffer);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
  raw.Writes.clear();
  EXPECT_EQ(CodeOf([&] { file.Read(UINT64_MAX - 1, 1, buffer); }), FileError::Seek);
  EXPECT_EQ(CodeOf([&] { file.Write(INT64_MAX, 1, buffer); }), FileError::Seek);
  EXPECT_TRUE(raw.Writes.empty());
  raw.Fail(Common::FileErrorOf(VR_SITE, FileError::Read));
  const std::function<void()> calls[] = {[&] { file.Read(0, 1, buffer); }, [&] { file.Write(0, 1, "x"); },
                                         [&] { file.GetSize(); }, [&] { file.Expand(1); }, [&] { file.Flush(); }};
  for (const auto& call : calls) EXPECT_EQ(CodeOf(call), FileError::Read);
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
    EXPECT_EQ(VhdxTest::Raised([&] { file->Write(0, 1, "x"); }).GetText(), u"The file is read-only.");
    const std::function<void()> changes[] = {[&] { file->WriteZero(0, 1); }, [&] { file->Expand(100); },
                                             [&] { file->Flush(); }};
    for (const auto& change : changes) EXPECT_EQ(CodeOf(change), 0x4000Cu);
  }
  EXPECT_EQ(raw.Writes.size(), 1u);
  EXPECT_EQ(raw.Store->Size(), 7u);
}

struct LoggingObserver : Vhdx::Observer {
  LoggingObserver(Log& l, std::string n, bool r = false) : log(l), name(std::move(n)), raise(r) {}
  void Notify() override {
    log.push_back(name);
    if (raise) throw Common::Error(VR_SITE, 0x3C0000);
  }
  Log& log;
  std::string name;
  bool raise;
};

// The observers log into the list of the file below: the order shows. An
// observer that raises stops the change, and the observers after it.
TEST(ChangeTrackingFileTest, ChangesNotifyEveryObserverInOrderBeforeTheyHappen) {
  ScriptedFile raw;
  Vhdx::WriteableFile writable(raw);
  VhdxTest::LoggingFile below(writable);
  Vhdx::ChangeTrackingFile file(below);
  file.Add(std::make_shared<LoggingObserver>(below.Log, "1"));
  file.Add(std::make_shared<LoggingObserver>(below.Log, "2"));
  file.Write(0, 4, "abcd");
  file.WriteZero(0, 2);
  file.Expand(4);  // the size stays, the notice comes all the same
  char buffer[4];
  file.Read(0, 4, buffer);
  EXPECT_EQ(file.GetSize(), 4u);
  file.Flush();
  EXPECT_EQ(below.Log, (Log{"1", "2", "W 0 4", "1", "2", "Z 0 2", "1", "2", "E 4", "F"}));

  Vhdx::ChangeTrackingFile refusing(below);
  below.Log.clear();
  refusing.Add(std::make_shared<LoggingObserver>(below.Log, "refusing", true));
  refusing.Add(std::make_shared<LoggingObserver>(below.Log, "later"));
  EXPECT_EQ(CodeOf([&] { refusing.Write(0, 1, "x"); }), 0x3C0000u);
  EXPECT_EQ(CodeOf([&] { refusing.Expand(10); }), 0x3C0000u);
  EXPECT_EQ(below.Log, (Log{"refusing", "refusing"}));
}

}  // namespace
