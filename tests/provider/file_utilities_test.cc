#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "provider/enumerations.h"
#include "common/file_errors.h"
#include "common/site.h"
#include "provider/file_utilities.h"
#include "vellumrig/host.h"

namespace VirtualWareRaw {
namespace {

using HostTest::TempDir;

TEST(TextHelpersTest, SuffixExtensionAndSeparators) {
  EXPECT_EQ(AddSuffix(u"a", u".vmc"), u"a.vmc");
  EXPECT_EQ(AddSuffix(u"a.VMC", u".vmc"), u"a.VMC");
  EXPECT_EQ(AddSuffix(u".vmc", u".vmc"), u".vmc.vmc");  // must be longer than the suffix
  EXPECT_EQ(AddSuffix(u"Stra\u00DFe.V\u00C4", u".v\u00E4"), u"Stra\u00DFe.V\u00C4");
  EXPECT_EQ(GetExtension(u"archive.tar.vhdx"), u"vhdx");
  EXPECT_EQ(GetExtension(u"noext"), u"");
  EXPECT_EQ(GetExtension(u"trailing."), u"");
  EXPECT_EQ(RemoveTrailingSeparators(u"/a/b///", u'/'), u"/a/b");
  EXPECT_EQ(RemoveTrailingSeparators(u"///", u'/'), u"");
}

TEST(EnumerationsTest, LookupsGiveTheRowTextOrUnknown) {
  EXPECT_EQ(GuestOSToString(0), u"Unknown");
  EXPECT_EQ(GuestOSToString(188), u"CentOS 9 (64-bit)");
  EXPECT_EQ(GuestOSToString(196), u"Linux Mint");
  EXPECT_EQ(GuestOSToString(999), u"Unknown");
  EXPECT_EQ(PowerStateToString(PowerUnknown), u"Unknown");
  EXPECT_EQ(PowerStateToString(PowerSuspended), u"Suspended");
  EXPECT_EQ(PowerStateToString(0), u"Unknown");
}

class FolderHelpersTest : public ::testing::Test {
 protected:
  TempDir dir_;
  std::unique_ptr<rio_dir> root_ = Host::OpenFolder(u"/");
  std::unique_ptr<rio_dir> folder_ = Host::OpenFolder(dir_.Wide());
};

TEST_F(FolderHelpersTest, ExistenceAndEmptiness) {
  EXPECT_TRUE(IsFolderEmpty(*folder_));
  HostTest::WriteBytes(dir_.Join("a.vmc"), "x");
  EXPECT_FALSE(IsFolderEmpty(*folder_));
  EXPECT_TRUE(FileExists(*folder_, u"a.vmc"));
  EXPECT_FALSE(FileExists(*folder_, u"b.vmc"));
  EXPECT_FALSE(folder_->Failed());  // the check leaves nothing pending
  EXPECT_TRUE(PathExists(*root_, dir_.Wide("a.vmc")));
  EXPECT_TRUE(PathExists(*folder_, u"a.vmc"));
  EXPECT_FALSE(PathExists(*root_, dir_.Wide("missing/a.vmc")));
  auto gone = Host::OpenFolder(dir_.Wide("gone"));
  EXPECT_TRUE(IsFolderEmpty(*gone));  // a folder that is not there lists nothing
}

TEST_F(FolderHelpersTest, FolderChainsAreMadeFromTheTopDown) {
  auto deep = Host::OpenFolder(dir_.Wide("a/b/c"));
  EXPECT_TRUE(CreateFolderChain(*deep).IsEmpty());
  EXPECT_TRUE(deep->Self());
  EXPECT_TRUE(CreateFolderChain(*deep).IsEmpty());  // existing: nothing to do
  // A file in the way stops the chain with the folder's error.
  HostTest::WriteBytes(dir_.Join("file"), "x");
  auto blocked = Host::OpenFolder(dir_.Wide("file/x/y"));
  const Common::Error error = CreateFolderChain(*blocked);
  EXPECT_FALSE(error.IsEmpty());
  auto readOnly = Host::OpenFolder(dir_.Wide("ro/x"), true);
  EXPECT_EQ(CreateFolderChain(*readOnly).Code(), FileError::ReadOnly);
}

TEST_F(FolderHelpersTest, VerifyThrowsThePendingErrorsInOrder) {
  auto missing = folder_->OpenFile(u"missing.vmc", kOpenRead);
  try {
    VerifyFileObject(*folder_, missing.get());
    FAIL() << "no throw";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), FileError::NotFound);
  }
  try {
    VerifyFileObject(*folder_, static_cast<file_object*>(nullptr));
    FAIL() << "no throw";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), FileError::NotSupported);
    EXPECT_STREQ(e.Site().Function, "VirtualWareRaw::VerifyFileObject");
  }
  auto fine = folder_->OpenFolder(u".");
  EXPECT_NO_THROW(VerifyFileObject(*folder_, fine.get()));
}

TEST_F(FolderHelpersTest, CredentialsForAFolderWithoutTheCommandAreSilent) {
  SetAccessCredentialsHelper(*folder_, dir_.Wide(), Common::Credentials{u"me", u"secret"});
  EXPECT_FALSE(folder_->Failed());
  EXPECT_TRUE(ChainHolds(Common::FileErrorOf(VR_SITE, FileError::NotSupported), FileError::NotSupported));
}

TEST_F(FolderHelpersTest, DefaultFoldersComeFromTheMachinesFolder) {
  ::setenv("VELLUMRIG_MACHINES", dir_.Join("machines").c_str(), 1);
  const std::vector<std::u16string> folders = GetVMDefaultFolders(*root_);
  ::unsetenv("VELLUMRIG_MACHINES");
  ASSERT_EQ(folders.size(), 1u);
  EXPECT_EQ(folders[0], dir_.Wide("machines") + u"/");
  // A list once found is kept for the process.
  EXPECT_EQ(GetVMDefaultFolders(*root_), folders);
}

}  // namespace
}  // namespace VirtualWareRaw
