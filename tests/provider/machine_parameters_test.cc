#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "provider/machine.h"
#include "refusing_folder.h"
#include "vellumrig/host.h"

namespace VirtualWareRaw {
namespace {

TEST(MachineParametersTest, ExistingMachineIsReportedWithoutWriting) {
  HostTest::TempDir dir;
  auto root = Host::OpenFolder(u"/");
  EXPECT_TRUE(CheckMSVPCVirtualMachineParameters(*root, dir.Wide(), u"a:b").IsEmpty());
  std::filesystem::create_directories(dir.Join("a_b"));
  HostTest::WriteBytes(dir.Join("a_b/a_b.vmc"), "<preferences/>");
  const Common::Error e = CheckMSVPCVirtualMachineParameters(*root, dir.Wide(), u"a:b");
  EXPECT_EQ(e.Code(), 0x530025u);
  EXPECT_EQ(e.GetText(), u"Virtual machine '" + dir.Wide("a_b/a_b.vmc") + u"' already exists.");
  EXPECT_EQ(CheckMSVPCVirtualMachineParameters(*root, dir.Wide(), u"..").Code(), 0x5301DFu);
}

TEST(MachineParametersTest, UnreachableStorageSaysWhereAndWhy) {
  HostTest::TempDir dir;
  ProviderTest::RefusingFolder root(Host::OpenFolder(u"/"));
  const Common::Error check = CheckMSVPCVirtualMachineParameters(root, dir.Wide(), u"Web");
  EXPECT_EQ(check.GetText(),
            u"Failed to access storage '" + dir.Wide() + u"' to create the virtual machine.");
  try {
    CreateMSVPCVirtualMachine(root, dir.Wide(), u"Web");
    FAIL() << "no throw";
  } catch (const Common::Error& e) {
    EXPECT_EQ(e.Code(), 0x530016u);
    // The storage as far as the folder of the file: the path less its last part.
    EXPECT_EQ(e.GetText(),
              u"Failed to access storage '" + dir.Wide("Web/") + u"' to create the virtual machine.");
    EXPECT_EQ(e.Reason().Code(), 0x40015u);
  }
  EXPECT_FALSE(HostTest::Exists(dir.Join("Web")));
}

TEST(MachineParametersTest, SafeNamesReplaceExactlyTheNineCharacters) {
  EXPECT_EQ(SafeName(u"a\\b/c:d*e?f\"g<h>i|j"), u"a_b_c_d_e_f_g_h_i_j");
  EXPECT_EQ(SafeName(u"keep .-_#%&'()+,;=@[]{}~ \u00E4"), u"keep .-_#%&'()+,;=@[]{}~ \u00E4");
}

}  // namespace
}  // namespace VirtualWareRaw
