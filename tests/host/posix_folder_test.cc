#include <cerrno>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/folder.h"
#include "vellumrig/host.h"

namespace {

using HostTest::CauseErrno;
using HostTest::Exists;
using HostTest::FileNameOf;
using HostTest::InChild;
using HostTest::IsFolder;
using HostTest::ReadBytes;
using HostTest::TempDir;
using HostTest::WriteBytes;

std::string ReadAll(rio_dir& folder, const std::u16string& name) {
  std::unique_ptr<i_file> file = folder.OpenFile(name, kOpenRead);
  if (!file) return "<" + Common::ToUtf8(folder.TakeError().GetText()) + ">";
  std::string out(256, '\0');
  out.resize(file->Read(out.data(), out.size()));
  return out;
}

class PosixFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_ = Host::OpenFolder(dir_.Wide());
    ASSERT_TRUE(folder_);
  }
  void MakeFolder(const std::string& name) { ASSERT_EQ(::mkdir(dir_.Join(name).c_str(), 0755), 0); }

  TempDir dir_;
  std::unique_ptr<rio_dir> folder_;
};

TEST_F(PosixFolderTest, CreateFileOverwritesAndOpenFileGivesTheRightKind) {
  WriteBytes(dir_.Join("a.txt"), "old and long");
  std::unique_ptr<rio_file> created = folder_->CreateFile(u"a.txt", 0, 0);
  ASSERT_TRUE(created);
  EXPECT_EQ(created->Size(), 0u) << "CreateFile must empty what was there";
  EXPECT_EQ(created->Write("new", 3), 3u);
  created.reset();
  EXPECT_EQ(ReadAll(*folder_, u"a.txt"), "new");

  std::unique_ptr<i_file> reading = folder_->OpenFile(u"a.txt", kOpenRead);
  EXPECT_EQ(dynamic_cast<o_file*>(reading.get()), nullptr);
  std::unique_ptr<i_file> writing = folder_->OpenFile(u"a.txt", kOpenReadWrite);
  ASSERT_NE(dynamic_cast<rio_file*>(writing.get()), nullptr);
  EXPECT_EQ(dynamic_cast<rio_file*>(writing.get())->Size(), 3u) << "opening must not empty it";

  EXPECT_FALSE(folder_->OpenFile(u"a.txt", 7));
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotSupported);

  // Names are UTF-8 on disk.
  ASSERT_TRUE(folder_->CreateFile(u"\u00e9t\u00e9 \U0001F600.vhdx", 0, 0));
  EXPECT_TRUE(Exists(dir_.Join("\xc3\xa9t\xc3\xa9 \xf0\x9f\x98\x80.vhdx")));
}

TEST_F(PosixFolderTest, MissingAndUnsuitableNamesGiveFileErrors) {
  EXPECT_FALSE(folder_->OpenFile(u"none.vhdx", kOpenRead));
  Common::Error error = folder_->TakeError();
  EXPECT_EQ(error.Code(), FileError::NotFound);
  EXPECT_EQ(error.GetText(), u"Specified file does not exist.");
  EXPECT_EQ(FileNameOf(error), dir_.Wide("none.vhdx"));
  EXPECT_EQ(CauseErrno(error), ENOENT);

  // A file used as a folder on the way.
  WriteBytes(dir_.Join("plain"), "x");
  EXPECT_FALSE(folder_->OpenFile(u"plain/inner", kOpenReadWrite));
  error = folder_->TakeError();
  EXPECT_EQ(error.Code(), FileError::NotFound);
  EXPECT_EQ(CauseErrno(error), ENOTDIR);
  EXPECT_FALSE(folder_->OpenFolder(u"plain"));
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);

  // A folder is no file.
  MakeFolder("sub");
  EXPECT_FALSE(folder_->OpenFile(u"sub", kOpenRead));
  error = folder_->TakeError();
  EXPECT_EQ(error.Code(), FileError::Open);
  EXPECT_EQ(error.GetText(), u"Error occurred while opening the file.");
  EXPECT_EQ(CauseErrno(error), EISDIR);
  EXPECT_FALSE(folder_->CreateFile(u"sub", 0, 0));
  EXPECT_EQ(CauseErrno(folder_->TakeError()), EISDIR);

  // A name the system cannot take whole.
  EXPECT_FALSE(folder_->CreateFile(std::u16string(u"cut\0off", 7), 0, 0));
  EXPECT_EQ(CauseErrno(folder_->TakeError()), EINVAL);
  EXPECT_FALSE(Exists(dir_.Join("cut")));
}

TEST_F(PosixFolderTest, EachOperationLeavesItsOwnOutcomePending) {
  folder_->DeleteFile(u"missing");
  EXPECT_EQ(folder_->Status.Code(), FileError::NotFound);
  folder_->CreateFolder(u"made");
  EXPECT_FALSE(folder_->Failed()) << "a folder's caller checks each operation on its own";
  folder_->CreateFolder(u"made");
  EXPECT_EQ(folder_->Status.Code(), FileError::Exists);
  EXPECT_FALSE(folder_->Find(u"missing"));
  EXPECT_FALSE(folder_->Failed()) << "a missing name is no failure of Find";
}

TEST_F(PosixFolderTest, FindDescribesFilesAndFoldersAndForgetsVanishedOnes) {
  WriteBytes(dir_.Join("disk.vhdx"), std::string(1234, 'd'));
  MakeFolder("sub");
  WriteBytes(dir_.Join("sub/inner.txt"), "12345");

  Processor::AutoRef<dir_item> file = folder_->Find(u"disk.vhdx");
  ASSERT_TRUE(file);
  EXPECT_EQ(file->Name(), u"disk.vhdx");
  EXPECT_FALSE(file->IsFolder());
  EXPECT_EQ(file->Size(), 1234u);
  Processor::AutoRef<dir_item> sub = folder_->Find(u"sub");
  ASSERT_TRUE(sub);
  EXPECT_TRUE(sub->IsFolder());
  Processor::AutoRef<dir_item> inner = folder_->Find(u"sub\\inner.txt");
  ASSERT_TRUE(inner);
  EXPECT_EQ(inner->Name(), u"inner.txt");
  EXPECT_EQ(inner->Size(), 5u);
  EXPECT_FALSE(folder_->Find(u"disk.vhdx/below"));
  EXPECT_FALSE(folder_->Failed()) << "a file on the way means the name is not there";

  // The file goes away between two calls.
  ASSERT_EQ(::unlink(dir_.Join("disk.vhdx").c_str()), 0);
  EXPECT_FALSE(folder_->Find(u"disk.vhdx"));
  EXPECT_FALSE(folder_->Failed());
  EXPECT_FALSE(folder_->OpenFile(u"disk.vhdx", kOpenRead));
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
  folder_->DeleteFile(u"disk.vhdx");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
}

TEST_F(PosixFolderTest, SelfTellsWhetherTheFolderExists) {
  Processor::AutoRef<dir_item> self = folder_->Self();
  ASSERT_TRUE(self);
  EXPECT_TRUE(self->IsFolder());
  EXPECT_EQ(self->Name(), Common::FromUtf8(dir_.Path().substr(dir_.Path().rfind('/') + 1)));

  std::unique_ptr<rio_dir> later = folder_->OpenFolder(u"later");
  ASSERT_TRUE(later) << "a folder may be named before it exists";
  EXPECT_FALSE(later->Self());
  EXPECT_EQ(later->TakeError().Code(), FileError::NotFound);

  later->CreateFolder(u".");
  EXPECT_FALSE(later->Failed());
  EXPECT_TRUE(IsFolder(dir_.Join("later")));
  EXPECT_TRUE(later->Self());
  later->CreateFolder(u".");
  const Common::Error again = later->TakeError();
  EXPECT_EQ(again.Code(), FileError::Exists);
  EXPECT_EQ(again.GetText(), u"The file or folder already exists.");
  EXPECT_EQ(CauseErrno(again), EEXIST);

  ASSERT_EQ(::rmdir(dir_.Join("later").c_str()), 0);
  EXPECT_FALSE(later->Self()) << "removed while the object lives";
  EXPECT_EQ(later->TakeError().Code(), FileError::NotFound);
}

TEST_F(PosixFolderTest, CreateRenameAndDeleteChangeTheDisk) {
  folder_->CreateFolder(u"a");
  folder_->CreateFolder(u"a\\b");
  EXPECT_FALSE(folder_->Failed());
  EXPECT_TRUE(IsFolder(dir_.Join("a/b")));
  folder_->CreateFolder(u"a");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::Exists);
  folder_->CreateFolder(u"x/y/z");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound) << "parents are not made";

  WriteBytes(dir_.Join("a/b/f.vhdx"), "payload");
  folder_->Rename(u"a/b/f.vhdx", u"a/g.vhdx");
  EXPECT_FALSE(folder_->Failed());
  EXPECT_FALSE(Exists(dir_.Join("a/b/f.vhdx")));
  EXPECT_EQ(ReadBytes(dir_.Join("a/g.vhdx")), "payload");

  // Rename never replaces what is there.
  WriteBytes(dir_.Join("keep.vhdx"), "keep");
  folder_->Rename(u"a/g.vhdx", u"keep.vhdx");
  Common::Error error = folder_->TakeError();
  EXPECT_EQ(error.Code(), FileError::Exists);
  EXPECT_EQ(FileNameOf(error), dir_.Wide("a/g.vhdx"));
  EXPECT_EQ(ReadBytes(dir_.Join("keep.vhdx")), "keep");
  EXPECT_EQ(ReadBytes(dir_.Join("a/g.vhdx")), "payload");
  folder_->Rename(u"gone", u"new");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
  folder_->Rename(u"a/b", u"c");
  EXPECT_TRUE(IsFolder(dir_.Join("c")));

  folder_->DeleteFolder(u"a");
  error = folder_->TakeError();
  EXPECT_EQ(error.Code(), FileError::Delete) << "a folder with files stays";
  EXPECT_EQ(error.GetText(), u"Error occurred while deleting the file.");
  EXPECT_EQ(CauseErrno(error), ENOTEMPTY);
  folder_->DeleteFile(u"a");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::Delete) << "DeleteFile takes no folder";
  folder_->DeleteFile(u"a/g.vhdx");
  folder_->DeleteFolder(u"a");
  EXPECT_FALSE(folder_->Failed());
  EXPECT_FALSE(Exists(dir_.Join("a")));
  folder_->DeleteFolder(u"a");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
}

TEST_F(PosixFolderTest, EnumerateListsSortedEntriesWithKinds) {
  WriteBytes(dir_.Join("b.vhdx"), "");
  WriteBytes(dir_.Join("B.vmc"), "");
  MakeFolder("a");
  MakeFolder("c");
  ASSERT_EQ(::symlink(dir_.Join("c").c_str(), dir_.Join("link-to-c").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.Join("nowhere").c_str(), dir_.Join("broken").c_str()), 0);

  using Listing = std::vector<std::pair<std::u16string, std::uint32_t>>;
  const Listing expected = {{u"B.vmc", kFileEntryKind},  {u"a", kFolderEntryKind},
                            {u"b.vhdx", kFileEntryKind}, {u"broken", kFileEntryKind},
                            {u"c", kFolderEntryKind},    {u"link-to-c", kFolderEntryKind}};
  Listing listed;
  std::unique_ptr<dir_enumerator> e = folder_->Enumerate();
  ASSERT_TRUE(e);
  EXPECT_FALSE(e->Failed()) << "stands on its first entry";
  do listed.emplace_back(e->Name(), e->GetKind());
  while (e->Next());
  EXPECT_EQ(listed, expected);
  EXPECT_EQ(e->Status.Code(), FileError::EndOfFile);
  EXPECT_EQ(e->Status.GetText(), u"End of file has been encountered.");
  EXPECT_TRUE(e->Name().empty());
  e->TakeError();
  EXPECT_FALSE(e->Next());
  EXPECT_EQ(e->TakeError().Code(), FileError::EndOfFile);

  std::unique_ptr<rio_dir> empty = folder_->OpenFolder(u"a");
  e = empty->Enumerate();
  ASSERT_TRUE(e);
  EXPECT_EQ(e->Status.Code(), FileError::EndOfFile);
  EXPECT_EQ(e->GetKind(), 0u);

  std::unique_ptr<rio_dir> missing = folder_->OpenFolder(u"missing");
  EXPECT_FALSE(missing->Enumerate());
  EXPECT_EQ(missing->TakeError().Code(), FileError::NotFound);
}

TEST_F(PosixFolderTest, OpenEntryOpensFoldersOnly) {
  MakeFolder("m1");
  WriteBytes(dir_.Join("m1/x.vmc"), "vmc");
  WriteBytes(dir_.Join("z.txt"), "");

  std::unique_ptr<dir_enumerator> e = folder_->Enumerate();
  ASSERT_TRUE(e);
  ASSERT_EQ(e->Name(), u"m1");
  // Any folder object may open the entry: the entry knows its folder.
  std::unique_ptr<rio_dir> m1 = Host::OpenFolder(u"/")->OpenEntry(*e);
  ASSERT_TRUE(m1);
  EXPECT_EQ(m1->FullPath(), dir_.Wide("m1/"));
  EXPECT_EQ(ReadAll(*m1, u"x.vmc"), "vmc");

  ASSERT_TRUE(e->Next());
  EXPECT_FALSE(folder_->OpenEntry(*e));
  EXPECT_EQ(CauseErrno(folder_->TakeError()), ENOTDIR);
  EXPECT_FALSE(e->Next());
  EXPECT_FALSE(folder_->OpenEntry(*e));
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
}

TEST_F(PosixFolderTest, FullPathFormsAndRelativeFolders) {
  EXPECT_EQ(folder_->FullPath(), dir_.Wide() + u"/");
  EXPECT_TRUE(Host::OpenFolder(u"\\\\")->FullPath().empty());
  EXPECT_EQ(Host::OpenFolder(dir_.Wide() + u"//./sub/../x//")->FullPath(), dir_.Wide("x/"));
  EXPECT_TRUE(Host::OpenFolder(u"/")->OpenFolder(u"..")->FullPath().empty())
      << "the parent of / is /";
  EXPECT_EQ(folder_->OpenFolder(u".")->FullPath(), folder_->FullPath());
  const std::string up = dir_.Path().substr(0, dir_.Path().rfind('/'));
  EXPECT_EQ(folder_->OpenFolder(u"..")->FullPath(), Common::FromUtf8(up) + u"/");

  char saved[4096];
  ASSERT_TRUE(::getcwd(saved, sizeof saved));
  ASSERT_EQ(::chdir(dir_.Path().c_str()), 0);
  std::unique_ptr<rio_dir> relative = Host::OpenFolder(u"work\\deeper\\..");
  ASSERT_EQ(::chdir(saved), 0);
  ASSERT_TRUE(relative);
  EXPECT_EQ(relative->FullPath(), dir_.Wide("work/"));
}

TEST_F(PosixFolderTest, OpenParentFolderSplitsPathsOfEveryForm) {
  MakeFolder("sub");
  WriteBytes(dir_.Join("sub/disk.vhdx"), "in sub");

  struct Case {
    std::u16string path;
    std::u16string folder;  // expected FullPath
    std::size_t rest;       // where the pointer must land
  };
  const std::u16string top = dir_.Wide() + u"/";
  const std::vector<Case> cases = {
      {dir_.Wide("sub/disk.vhdx"), top + u"sub/", top.size() + 4},
      {u"sub/disk.vhdx", top + u"sub/", 4},
      {u"sub\\disk.vhdx", top + u"sub/", 4},
      {u".\\disk.vhdx", top, 2},
      {u"disk.vhdx", top, 0},
      {u"new\\deeper\\x.vmc", top + u"new/deeper/", 11},  // nothing of it exists
      {u"sub/../sub//disk.vhdx", top + u"sub/", 12},
      {u"a/b/", top + u"a/", 2},
      {u"/", u"", 1},
      {u"", top, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(Common::ToUtf8(c.path));
    const char16_t* cursor = c.path.c_str();
    std::unique_ptr<rio_dir> parent = folder_->OpenParentFolder(cursor);
    ASSERT_TRUE(parent);
    EXPECT_EQ(parent->FullPath(), c.folder);
    EXPECT_EQ(cursor, c.path.c_str() + c.rest);
  }

  // What the split gives is usable at once, a trailing separator included.
  for (const std::u16string path : {u"sub\\disk.vhdx", u"sub/"}) {
    const char16_t* name = path.c_str();
    std::unique_ptr<rio_dir> holder = folder_->OpenParentFolder(name);
    ASSERT_TRUE(holder);
    EXPECT_TRUE(holder->Find(name)) << Common::ToUtf8(path);
  }
  EXPECT_EQ(ReadAll(*folder_, u"sub/..\\sub/disk.vhdx"), "in sub");

  const char16_t* none = nullptr;
  EXPECT_FALSE(folder_->OpenParentFolder(none));
  EXPECT_TRUE(folder_->Failed());
}

TEST_F(PosixFolderTest, IsSameFolderComparesTheFolderNotTheSpelling) {
  MakeFolder("a");
  MakeFolder("b");
  ASSERT_EQ(::symlink(dir_.Join("a").c_str(), dir_.Join("alias").c_str()), 0);

  std::unique_ptr<rio_dir> a = folder_->OpenFolder(u"a");
  EXPECT_EQ(a->IsSameFolder(*folder_->OpenFolder(u"alias")), 1);
  EXPECT_EQ(a->IsSameFolder(*Host::OpenFolder(dir_.Wide("b/../a"))), 1);
  EXPECT_EQ(a->IsSameFolder(*folder_->OpenFolder(u"b")), 0);

  // Folders not there yet compare by their paths.
  std::unique_ptr<rio_dir> m = folder_->OpenFolder(u"m/n");
  EXPECT_EQ(m->IsSameFolder(*Host::OpenFolder(dir_.Wide("m\\.\\n\\"))), 1);
  EXPECT_EQ(m->IsSameFolder(*folder_->OpenFolder(u"m/o")), 0);
  EXPECT_EQ(m->IsSameFolder(*a), 0);
}

// Each refused operation must leave the disk as it was.
TEST_F(PosixFolderTest, AReadOnlyFolderRefusesEveryChange) {
  MakeFolder("sub");
  WriteBytes(dir_.Join("f.vhdx"), "keep");
  WriteBytes(dir_.Join("sub/g.vhdx"), "inner");
  std::unique_ptr<rio_dir> ro = Host::OpenFolder(dir_.Wide(), true);

  auto expectRefused = [&](const char* what) {
    const Common::Error error = ro->TakeError();
    EXPECT_EQ(error.Code(), FileError::ReadOnly) << what;
    EXPECT_EQ(error.GetText(), u"The file is read-only.") << what;
  };
  ro->DeleteFile(u"f.vhdx");
  expectRefused("DeleteFile");
  ro->Rename(u"f.vhdx", u"h.vhdx");
  expectRefused("Rename");
  ro->CreateFolder(u"new");
  expectRefused("CreateFolder");
  ro->DeleteFolder(u"sub/");
  expectRefused("DeleteFolder");
  EXPECT_FALSE(ro->CreateFile(u"f.vhdx", 0, 0));
  expectRefused("CreateFile");
  EXPECT_FALSE(ro->OpenFile(u"f.vhdx", kOpenReadWrite));
  expectRefused("OpenFile for writing");
  EXPECT_EQ(ReadBytes(dir_.Join("f.vhdx")), "keep");
  EXPECT_FALSE(Exists(dir_.Join("h.vhdx")) || Exists(dir_.Join("new")));
  EXPECT_TRUE(IsFolder(dir_.Join("sub")));
  EXPECT_EQ(ReadAll(*ro, u"f.vhdx"), "keep") << "reading goes on";

  // Whatever it opens is read-only too.
  std::vector<std::pair<const char*, std::unique_ptr<rio_dir>>> opened;
  opened.emplace_back("OpenFolder", ro->OpenFolder(u"sub"));
  const std::u16string path = u"sub/g.vhdx";
  const char16_t* cursor = path.c_str();
  opened.emplace_back("OpenParentFolder", ro->OpenParentFolder(cursor));
  std::unique_ptr<dir_enumerator> e = ro->Enumerate();
  while (e->Name() != u"sub") ASSERT_TRUE(e->Next());
  opened.emplace_back("OpenEntry", ro->OpenEntry(*e));
  for (auto& [how, sub] : opened) {
    ASSERT_TRUE(sub) << how;
    sub->DeleteFile(u"g.vhdx");
    EXPECT_EQ(sub->TakeError().Code(), FileError::ReadOnly) << how;
  }
  EXPECT_TRUE(Exists(dir_.Join("sub/g.vhdx")));
}

TEST_F(PosixFolderTest, AFolderWithoutWriteRightsDeniesAccess) {
  ASSERT_EQ(::mkdir(dir_.Join("closed").c_str(), 0555), 0);
  // root passes every permission check, so the child gives that up first.
  InChild([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) return 10;
    std::unique_ptr<rio_dir> closed = Host::OpenFolder(dir_.Wide("closed"));
    if (closed->CreateFile(u"x", 0, 0)) return 11;
    const Common::Error error = closed->TakeError();
    if (error.Code() != FileError::AccessDenied) return 12;
    if (error.GetText() != u"Access to the file is denied.") return 13;
    return CauseErrno(error) == EACCES ? 0 : 14;
  });
}

// The machines folder is found through the environment; each case sets it
// and the fixture puts it back.
class MachinesFolderTest : public ::testing::Test {
 protected:
  static constexpr const char* kNames[] = {Host::kMachinesFolderVariable, "XDG_DATA_HOME", "HOME"};

  void SetUp() override {
    for (const char* name : kNames) {
      const char* value = std::getenv(name);
      saved_.emplace_back(value ? std::optional<std::string>(value) : std::nullopt);
      ::unsetenv(name);
    }
  }
  void TearDown() override {
    for (std::size_t i = 0; i < saved_.size(); ++i) {
      if (saved_[i]) ::setenv(kNames[i], saved_[i]->c_str(), 1);
      else ::unsetenv(kNames[i]);
    }
  }

  void ExpectMachinesAt(const std::string& where) {
    std::unique_ptr<rio_dir> any = Host::OpenFolder(u"/");
    std::unique_ptr<rio_dir> machines = any->OpenSpecialFolder(kMachinesFolder);
    ASSERT_TRUE(machines) << Common::ToUtf8(any->TakeError().GetText());
    EXPECT_EQ(machines->FullPath(), Common::FromUtf8(where) + u"/");
    EXPECT_EQ(Host::DefaultMachinesFolder(), Common::FromUtf8(where));
    EXPECT_TRUE(IsFolder(where)) << "created with its parents";
  }

  TempDir dir_;
  std::vector<std::optional<std::string>> saved_;
};

TEST_F(MachinesFolderTest, TheVariableWinsThenXdgThenHome) {
  ::setenv("HOME", dir_.Join("home").c_str(), 1);
  ::setenv("XDG_DATA_HOME", dir_.Join("data").c_str(), 1);
  ::setenv(Host::kMachinesFolderVariable, dir_.Join("own/deep/machines").c_str(), 1);
  ExpectMachinesAt(dir_.Join("own/deep/machines"));
  ::unsetenv(Host::kMachinesFolderVariable);
  ExpectMachinesAt(dir_.Join("data/vellumrig/machines"));
  ::setenv("XDG_DATA_HOME", "relative/data", 1);  // not to be used
  ExpectMachinesAt(dir_.Join("home/.local/share/vellumrig/machines"));
}

TEST_F(MachinesFolderTest, ReadOnlyFoldersDoNotCreateItAndOtherKindsAreUnknown) {
  ::setenv(Host::kMachinesFolderVariable, dir_.Join("m").c_str(), 1);
  std::unique_ptr<rio_dir> ro = Host::OpenFolder(dir_.Wide(), true);
  std::unique_ptr<rio_dir> machines = ro->OpenSpecialFolder(kMachinesFolder);
  ASSERT_TRUE(machines);
  EXPECT_FALSE(Exists(dir_.Join("m")));
  machines->CreateFolder(u".");
  EXPECT_EQ(machines->TakeError().Code(), FileError::ReadOnly);

  EXPECT_FALSE(ro->OpenSpecialFolder(kMachinesFolder + 1));
  EXPECT_EQ(ro->TakeError().Code(), FileError::NotSupported);

  WriteBytes(dir_.Join("m"), "");
  std::unique_ptr<rio_dir> rw = Host::OpenFolder(dir_.Wide());
  EXPECT_FALSE(rw->OpenSpecialFolder(kMachinesFolder)) << "a file in the way is no folder";
  EXPECT_EQ(CauseErrno(rw->TakeError()), ENOTDIR);
}

}  // namespace
