#include <cerrno>
#include <cstdlib>
#include <string_view>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/host.h"

namespace {

using namespace HostTest;

// One operation of `folder` on `name`; true when it handed something out.
bool Perform(rio_dir& folder, std::string_view operation, const std::u16string& name) {
  const char16_t* none = nullptr;
  if (operation == "read") return !!folder.OpenFile(name, kOpenRead);
  if (operation == "write") return !!folder.OpenFile(name, kOpenReadWrite);
  if (operation == "mode 7") return !!folder.OpenFile(name, 7);
  if (operation == "folder") return !!folder.OpenFolder(name);
  if (operation == "other kind") return !!folder.OpenSpecialFolder(kMachinesFolder + 1);
  if (operation == "parent") return !!folder.OpenParentFolder(none);
  if (operation == "create") return !!folder.CreateFile(name, 0, 0);
  if (operation == "delete") folder.DeleteFile(name);
  if (operation == "mkdir") folder.CreateFolder(name);
  if (operation == "rmdir") folder.DeleteFolder(name);
  if (operation == "rename") folder.Rename(name, u"renamed");
  return false;
}

class PosixFolderTest : public ::testing::Test {
 protected:
  void MakeFolder(const std::string& name) { ASSERT_EQ(::mkdir(dir_.Join(name).c_str(), 0755), 0); }

  TempDir dir_;
  std::unique_ptr<rio_dir> folder_ = Host::OpenFolder(dir_.Wide());
};

TEST_F(PosixFolderTest, FailuresTellCodeTextCauseAndNameAndReadOnlyRefusesChanges) {
  WriteBytes(dir_.Join("plain"), "x");
  WriteBytes(dir_.Join("renamed"), "keep");
  MakeFolder("sub");
  WriteBytes(dir_.Join("sub/f"), "");
  const struct {
    const char* operation;
    std::u16string name;
    std::uint32_t code;
    int cause;   // the errno, -1 for none
    bool shown;  // the error names the file
    const char16_t* text = nullptr;
  } cases[] = {
      {"read", u"none", FileError::NotFound, ENOENT, true, u"Specified file does not exist."},
      {"write", u"plain/in", FileError::NotFound, ENOTDIR, true},  // a file on the way
      {"folder", u"plain", FileError::NotFound, ENOTDIR, true},
      {"read", u"sub", FileError::Open, EISDIR, true, u"Error occurred while opening the file."},
      {"create", u"sub", FileError::Create, EISDIR, true},
      {"delete", u"sub", FileError::Delete, EISDIR, true},
      {"create", std::u16string(u"cut\0off", 7), FileError::Create, EINVAL, false},
      {"mode 7", u"plain", FileError::NotSupported, -1, true},
      {"other kind", u"", FileError::NotSupported, -1, false},
      {"parent", u"", FileError::Open, EINVAL, false},
      {"mkdir", u"sub", FileError::Exists, EEXIST, true, u"The file or folder already exists."},
      {"mkdir", u"x/y", FileError::NotFound, ENOENT, true},  // parents are not made
      {"rmdir", u"sub", FileError::Delete, ENOTEMPTY, true,
       u"Error occurred while deleting the file."},
      {"rename", u"plain", FileError::Exists, EEXIST, true},  // never replaces
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.operation << " " << Common::ToUtf8(c.name));
    EXPECT_FALSE(Perform(*folder_, c.operation, c.name));
    const Common::Error error = folder_->TakeError();
    EXPECT_EQ(error.Code(), c.code);
    EXPECT_EQ(CauseErrno(error), c.cause);
    EXPECT_EQ(FileNameOf(error), c.shown ? dir_.Wide() + u"/" + c.name : u"<none>");
    EXPECT_TRUE(!c.text || error.GetText() == c.text) << Common::ToUtf8(error.GetText());
  }

  // A read-only folder refuses every change, and so does whatever it opens.
  std::unique_ptr<rio_dir> ro = Host::OpenFolder(dir_.Wide(), true);
  for (const char* operation : {"delete", "rename", "mkdir", "rmdir", "create", "write"}) {
    EXPECT_FALSE(Perform(*ro, operation, u"plain")) << operation;
    EXPECT_EQ(ro->Status.Code(), FileError::ReadOnly) << operation;
    EXPECT_EQ(ro->TakeError().GetText(), u"The file is read-only.") << operation;
  }
  // An untaken failure is not lost behind a later one; the folder goes on.
  folder_->DeleteFile(u"none");
  folder_->DeleteFile(u"sub");
  folder_->CreateFolder(u"made");
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
  EXPECT_TRUE(Exists(dir_.Join("made")));
  ro->OpenFolder(u"sub")->CreateFolder(u"new");
  EXPECT_TRUE(ro->OpenFile(u"plain", kOpenRead) && !Exists(dir_.Join("sub/new")));
  EXPECT_EQ(ReadBytes(dir_.Join("renamed")) + ReadBytes(dir_.Join("plain")), "keepx");
}

TEST_F(PosixFolderTest, FilesAndFoldersAreMadeFoundAndRemovedAndMayVanish) {
  WriteBytes(dir_.Join("a.txt"), "old and long");
  std::unique_ptr<rio_file> created = folder_->CreateFile(u"a.txt", 0, 0);
  EXPECT_EQ(created->Size(), 0u) << "CreateFile empties what was there";
  created->Write("new", 3);
  created.reset();
  EXPECT_FALSE(dynamic_cast<o_file*>(folder_->OpenFile(u"a.txt", kOpenRead).get()));
  const std::unique_ptr<i_file> writing = folder_->OpenFile(u"a.txt", kOpenReadWrite);
  EXPECT_EQ(dynamic_cast<rio_file&>(*writing).Size(), 3u) << "opening does not empty it";
  // Names are UTF-8 on disk.
  EXPECT_TRUE(folder_->CreateFile(u"\u00e9t\u00e9 \U0001F600.vhdx", 0, 0));
  EXPECT_TRUE(Exists(dir_.Join("\xc3\xa9t\xc3\xa9 \xf0\x9f\x98\x80.vhdx")));

  folder_->CreateFolder(u"a");
  folder_->CreateFolder(u"a\\b");
  WriteBytes(dir_.Join("a/b/f.vhdx"), "payload");
  Processor::AutoRef<dir_item> item = folder_->Find(u"a\\b\\f.vhdx");
  ASSERT_TRUE(item);
  EXPECT_EQ(item->Name(), u"f.vhdx");
  EXPECT_FALSE(item->IsFolder());
  EXPECT_EQ(item->Size(), 7u);
  EXPECT_TRUE(folder_->Find(u"a/b")->IsFolder());
  // Neither a missing name nor a file on the way is a failure of Find.
  EXPECT_FALSE(folder_->Find(u"missing") || folder_->Find(u"a.txt/below") || folder_->Failed());
  folder_->Rename(u"a/b/f.vhdx", u"a/g.vhdx");
  folder_->DeleteFile(u"a/g.vhdx");
  folder_->DeleteFolder(u"a/b");
  EXPECT_FALSE(folder_->Failed() || Exists(dir_.Join("a/b")) || Exists(dir_.Join("a/g.vhdx")));

  // Files and folders that vanish between two calls are simply not there.
  ASSERT_EQ(::unlink(dir_.Join("a.txt").c_str()), 0);
  EXPECT_FALSE(folder_->Find(u"a.txt") || folder_->Failed());
  std::unique_ptr<rio_dir> a = folder_->OpenFolder(u"a");
  ASSERT_EQ(::rmdir(dir_.Join("a").c_str()), 0);
  EXPECT_FALSE(a->Self() || a->Enumerate());
  EXPECT_EQ(a->TakeError().Code(), FileError::NotFound);
  // A folder may be named before it exists, and made through itself.
  a->CreateFolder(u".");
  EXPECT_EQ(a->Self()->Name(), u"a");
}

TEST_F(PosixFolderTest, EnumerateListsSortedEntriesWithKindsAndOpensFolders) {
  WriteBytes(dir_.Join("b.vhdx"), "");
  WriteBytes(dir_.Join("B.vmc"), "");
  MakeFolder("a");
  MakeFolder("c");
  ASSERT_EQ(::symlink(dir_.Join("c").c_str(), dir_.Join("link-to-c").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.Join("nowhere").c_str(), dir_.Join("broken").c_str()), 0);

  std::unique_ptr<dir_enumerator> e = folder_->Enumerate();
  EXPECT_FALSE(e->Failed()) << "stands on its first entry";
  // Any folder object opens the entry, the folders among them: the entry knows its folder.
  std::unique_ptr<rio_dir> any = Host::OpenFolder(u"/");
  std::u16string listed;  // folders end in "/"
  do {
    const std::uint32_t kind = e->GetKind();
    const std::u16string entry = e->Name() + (kind == kFolderEntryKind ? u"/" : u"");
    listed += entry + (kind == kFolderEntryKind || kind == kFileEntryKind ? u" " : u"? ");
    std::unique_ptr<rio_dir> opened = any->OpenEntry(*e);
    const int cause = opened ? 0 : CauseErrno(any->TakeError());
    EXPECT_EQ(opened ? opened->FullPath() : u"", cause ? u"" : dir_.Wide() + u"/" + entry);
    EXPECT_EQ(cause, kind == kFolderEntryKind ? 0 : ENOTDIR) << Common::ToUtf8(entry);
  } while (e->Next());
  EXPECT_EQ(listed, u"B.vmc a/ b.vhdx broken c/ link-to-c/ ");
  EXPECT_EQ(e->Status.GetText(), u"End of file has been encountered.");
  EXPECT_TRUE(e->Name().empty());
  EXPECT_FALSE(folder_->OpenEntry(*e));
  EXPECT_EQ(folder_->TakeError().Code(), FileError::NotFound);
  // An empty folder's listing starts at the end.
  e = folder_->OpenFolder(u"a")->Enumerate();
  EXPECT_EQ(e->Status.Code(), FileError::EndOfFile);
  EXPECT_EQ(e->GetKind(), 0u);
}

TEST_F(PosixFolderTest, PathsAreNormalisedAndFoldersComparedByWhatTheyAre) {
  EXPECT_TRUE(Host::OpenFolder(u"\\\\")->FullPath().empty());
  InChild([&] {  // a relative path is taken from the current folder, here changed for good
    return ::chdir(dir_.Path().c_str()) == 0 &&
           Host::OpenFolder(u"work\\deeper\\..")->FullPath() == dir_.Wide("work/") ? 0 : 1;
  });

  // OpenParentFolder: the folder of the path, and the pointer moved to its last part.
  const std::u16string top = dir_.Wide() + u"/";
  const struct {
    std::u16string path, folder;
    std::ptrdiff_t rest;
  } cases[] = {
      {u"\\a\\..\\..\\x", u"", 9},  // from the top, which has no parent
      {u".\\disk.vhdx", top, 2},
      {u"disk.vhdx", top, 0},
      {u"new\\deeper\\x.vmc", top + u"new/deeper/", 11},  // nothing of it exists
      {u"sub/../sub//disk.vhdx", top + u"sub/", 12},
      {u"a/b/", top + u"a/", 2},
      {u"/", u"", 1},
  };
  for (const auto& c : cases) {
    const char16_t* cursor = c.path.c_str();
    EXPECT_EQ(folder_->OpenParentFolder(cursor)->FullPath(), c.folder) << Common::ToUtf8(c.path);
    EXPECT_EQ(cursor - c.path.c_str(), c.rest) << Common::ToUtf8(c.path);
  }

  // IsSameFolder compares the folder, not the spelling.
  MakeFolder("a");
  MakeFolder("b");
  ASSERT_EQ(::symlink(dir_.Join("a").c_str(), dir_.Join("alias").c_str()), 0);
  std::unique_ptr<rio_dir> a = folder_->OpenFolder(u"a");
  EXPECT_EQ(a->IsSameFolder(*folder_->OpenFolder(u"alias")), 1);
  EXPECT_EQ(a->IsSameFolder(*folder_->OpenFolder(u"b")), 0);
  // Folders not there yet compare by their paths.
  std::unique_ptr<rio_dir> m = folder_->OpenFolder(u"m/n");
  EXPECT_EQ(m->IsSameFolder(*Host::OpenFolder(dir_.Wide("m\\.\\n\\"))), 1);
  EXPECT_EQ(m->IsSameFolder(*folder_->OpenFolder(u"m/o")), 0);
  EXPECT_EQ(m->IsSameFolder(*a), 0);
}

TEST_F(PosixFolderTest, AFolderWithoutWriteRightsDeniesAccess) {
  ASSERT_EQ(::mkdir(dir_.Join("closed").c_str(), 0555), 0);
  // root passes every permission check, so the child gives that up first.
  InChild([&] {
    if (::geteuid() == 0 && ::setuid(65534) != 0) return 10;
    std::unique_ptr<rio_dir> closed = Host::OpenFolder(dir_.Wide("closed"));
    const bool made = !!closed->CreateFile(u"x", 0, 0);
    const Common::Error error = closed->TakeError();
    return !made && error.Code() == FileError::AccessDenied && CauseErrno(error) == EACCES &&
           error.GetText() == u"Access to the file is denied." ? 0 : 11;
  });
}

// Run in a child, so that the environment set here goes with it.
TEST(MachinesFolderTest, TheVariableWinsThenXdgThenHome) {
  const TempDir dir;
  InChild([&] {
    std::unique_ptr<rio_dir> rw = Host::OpenFolder(u"/"), ro = Host::OpenFolder(u"/", true);
    // A read-only folder does not make it and hands it out read-only; a
    // writable one makes it with its parents.
    const auto at = [&](const std::string& where) {
      ro->OpenSpecialFolder(kMachinesFolder)->CreateFolder(u".");
      return Host::DefaultMachinesFolder() == Common::FromUtf8(where) && !Exists(where) &&
             rw->OpenSpecialFolder(kMachinesFolder)->FullPath() == Common::FromUtf8(where + "/") &&
             IsFolder(where);
    };
    ::setenv("HOME", dir.Join("home").c_str(), 1);
    ::setenv("XDG_DATA_HOME", dir.Join("data").c_str(), 1);
    ::setenv(Host::kMachinesFolderVariable, dir.Join("own/deep/machines").c_str(), 1);
    if (!at(dir.Join("own/deep/machines"))) return 1;
    ::unsetenv(Host::kMachinesFolderVariable);
    if (!at(dir.Join("data/vellumrig/machines"))) return 2;
    ::setenv("XDG_DATA_HOME", "relative/data", 1);  // not to be used
    if (!at(dir.Join("home/.local/share/vellumrig/machines"))) return 3;
    // A file in the way is no folder.
    ::setenv(Host::kMachinesFolderVariable, dir.Join("m").c_str(), 1);
    WriteBytes(dir.Join("m"), "");
    const bool made = !!rw->OpenSpecialFolder(kMachinesFolder);
    return !made && CauseErrno(rw->TakeError()) == ENOTDIR ? 0 : 4;
  });
}

}  // namespace
