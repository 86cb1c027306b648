#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "provider/enumerations.h"
#include "common/file_errors.h"
#include "common/site.h"
#include "provider/file_utilities.h"
#include "provider/machine.h"
#include "refusing_folder.h"
#include "vellumrig/host.h"

namespace VirtualWareRaw {
namespace {

using HostTest::TempDir;

TEST(TextHelpersTest, SuffixExtensionSeparatorsSafeNamesAndEnumerationTexts) {
  const std::pair<std::u16string, std::u16string> cases[] = {
      {AddSuffix(u"a", u".vmc"), u"a.vmc"},
      {AddSuffix(u"a.VMC", u".vmc"), u"a.VMC"},
      {AddSuffix(u".vmc", u".vmc"), u".vmc.vmc"},  // must be longer than the suffix
      {AddSuffix(u"Stra\u00DFe.V\u00C4", u".v\u00E4"), u"Stra\u00DFe.V\u00C4"},
      {GetExtension(u"archive.tar.vhdx"), u"vhdx"},
      {GetExtension(u"noext"), u""},
      {GetExtension(u"trailing."), u""},
      {RemoveTrailingSeparators(u"/a/b///", u'/'), u"/a/b"},
      {RemoveTrailingSeparators(u"///", u'/'), u""},
      {SafeName(u"a\\b/c:d*e?f\"g<h>i|j"), u"a_b_c_d_e_f_g_h_i_j"},  // exactly the nine characters
      {SafeName(u"keep .-_#%&'()+,;=@[]{}~ \u00E4"), u"keep .-_#%&'()+,;=@[]{}~ \u00E4"},
      {std::u16string(GuestOSToString(188)), u"CentOS 9 (64-bit)"},
      {std::u16string(GuestOSToString(196)), u"Linux Mint"},
      {std::u16string(GuestOSToString(999)), u"Unknown"},
      {std::u16string(PowerStateToString(PowerSuspended)), u"Suspended"},
      {std::u16string(PowerStateToString(0)), u"Unknown"},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
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
  EXPECT_TRUE(CreateFolderChain(*deep).IsEmpty());  // existing: nothing to do
  // A file in the way stops the chain with the folder's error.
  HostTest::WriteBytes(dir_.Join("file"), "x");
  auto blocked = Host::OpenFolder(dir_.Wide("file/x/y"));
  EXPECT_FALSE(CreateFolderChain(*blocked).IsEmpty());
  auto readOnly = Host::OpenFolder(dir_.Wide("ro/x"), true);
  EXPECT_EQ(CreateFolderChain(*readOnly).Code(), FileError::ReadOnly);
}

TEST_F(FolderHelpersTest, VerifyThrowsThePendingErrorsInOrder) {
  auto thrown = [&](file_object* object) {
    try {
      VerifyFileObject(*folder_, object);
    } catch (const Common::Error& e) {
      return e;
    }
    return Common::Error();
  };
  auto missing = folder_->OpenFile(u"missing.vmc", kOpenRead);
  EXPECT_EQ(thrown(missing.get()).Code(), FileError::NotFound);
  const Common::Error none = thrown(nullptr);
  EXPECT_EQ(none.Code(), FileError::NotSupported);
  EXPECT_EQ(none.GetText(), u"The operation is not supported.");
  EXPECT_STREQ(none.Site().Function, "VirtualWareRaw::VerifyFileObject");
  auto fine = folder_->OpenFolder(u".");
  EXPECT_TRUE(thrown(fine.get()).IsEmpty());
}

TEST_F(FolderHelpersTest, CredentialsForAFolderWithoutTheCommandAreSilent) {
  SetAccessCredentialsHelper(*folder_, dir_.Wide(), Common::Credentials{u"me", u"secret"});
  EXPECT_FALSE(folder_->Failed());
}

// Machine parameters: the folder a new machine would go to.
TEST_F(FolderHelpersTest, ExistingMachineIsReportedWithoutWriting) {
  EXPECT_TRUE(CheckMSVPCVirtualMachineParameters(*root_, dir_.Wide(), u"a:b").IsEmpty());
  std::filesystem::create_directories(dir_.Join("a_b"));
  HostTest::WriteBytes(dir_.Join("a_b/a_b.vmc"), "<preferences/>");
  const Common::Error e = CheckMSVPCVirtualMachineParameters(*root_, dir_.Wide(), u"a:b");
  EXPECT_EQ(e.Code(), 0x530025u);
  EXPECT_EQ(e.GetText(), u"Virtual machine '" + dir_.Wide("a_b/a_b.vmc") + u"' already exists.");
  EXPECT_EQ(CheckMSVPCVirtualMachineParameters(*root_, dir_.Wide(), u"..").Code(), 0x5301DFu);
}

TEST_F(FolderHelpersTest, UnreachableStorageSaysWhereAndWhy) {
  ProviderTest::RefusingFolder root(Host::OpenFolder(u"/"));
  const Common::Error check = CheckMSVPCVirtualMachineParameters(root, dir_.Wide(), u"Web");
  EXPECT_EQ(check.GetText(),
            u"Failed to access storage '" + dir_.Wide() + u"' to create the virtual machine.");
  try {
    CreateMSVPCVirtualMachine(root, dir_.Wide(), u"Web");
    FAIL() << "no throw";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), 0x530016u);
    // The storage as far as the folder of the file: the path less its last part.
    EXPECT_EQ(e.GetText(),
              u"Failed to access storage '" + dir_.Wide("Web/") + u"' to create the virtual machine.");
    EXPECT_EQ(e.Reason().Code(), 0x40015u);
  }
  EXPECT_FALSE(HostTest::Exists(dir_.Join("Web")));
}

}  // namespace
}  // namespace VirtualWareRaw
