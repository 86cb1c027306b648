// vrig as a user runs it.
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"

namespace {

using VrigRun = HostTest::Outcome;

// Runs vrig with English texts unless `environment` says otherwise.
VrigRun Vrig(const std::string& arguments, const std::string& environment = "LANGUAGE=en",
             const std::string& folder = ".", const std::string& program = VRIG_PATH) {
  return HostTest::Shell("cd " + folder + " && env " + environment + " " + program + " " + arguments);
}

TEST(VrigTest, InfoPrintsEveryPropertyInOrderInTheLanguageOfTheEnvironment) {
  const VrigRun run = Vrig("info");
  ASSERT_EQ(run.status, 0) << run.output;
  const char* lines[] = {"ID = E7F120F4-5479-4C91-AEA0-ACE049E8F4CC\n", "ResourceName = VHDX files\n",
                         "Name = Virtual PC\n", "SupportedFirmwareTypes = 1, 0\n",
                         "Vendor = Microsoft\n", "Version = 5.3.582.27\n", "UUID = ", "CpuVendor = ",
                         "CpuArchitecture = ", "CpuFamily = ", "CpuModel = "};
  size_t at = 0;
  for (const char* line : lines) {
    at = run.output.find(line, at);
    ASSERT_NE(at, std::string::npos) << line << "\n" << run.output;
  }
  // The language is read from the environment at the first message, too.
  const VrigRun german = Vrig("info", "LANGUAGE=de");
  EXPECT_NE(german.output.find("ResourceName = VHDX-Dateien\n"), std::string::npos) << german.output;
  const VrigRun unknown = Vrig("info", "LANGUAGE=xx LC_ALL=C");
  EXPECT_NE(unknown.output.find("ResourceName = VHDX files\n"), std::string::npos) << unknown.output;
}

TEST(VrigTest, MachinesAreMadeChangedFoundRenamedAndRemoved) {
  const HostTest::TempDir dir;
  const std::string& storage = dir.Path();
  const std::string vmc = storage + "/Web/Web.vmc";
  // Relative paths are taken from the current folder.
  const VrigRun create = Vrig("vm create . Web", "LANGUAGE=en", storage);
  ASSERT_EQ(create.status, 0) << create.output;
  EXPECT_EQ(create.output, vmc + "\n");
  EXPECT_EQ(Vrig("vm set " + vmc + " Memory 1073741824").status, 0);
  const VrigRun show = Vrig("vm show " + vmc);
  EXPECT_NE(show.output.find("Name = Web\nFileName = " + vmc + "\nMemory = 1024\n"), std::string::npos)
      << show.output;
  EXPECT_EQ(Vrig("vm find " + storage + " Web").output, vmc + "\n");

  const std::string renamed = storage + "/App/App.vmc";
  EXPECT_EQ(Vrig("vm rename " + vmc + " App").output, renamed + "\n");
  const VrigRun gone = Vrig("vm find " + storage + " Web");
  EXPECT_EQ(gone.status, 1);
  EXPECT_NE(gone.output.find("no machine 'Web'"), std::string::npos);

  // A failure prints the chain: the outer meaning, then each cause.
  const VrigRun bad = Vrig("vm set " + renamed + " Memory lots");
  EXPECT_EQ(bad.status, 1);
  const std::size_t outer = bad.output.find("Failed to set property 'Memory' to 'lots'.");
  EXPECT_NE(outer, std::string::npos) << bad.output;
  EXPECT_LT(outer, bad.output.find("Error code: 0x53006F"));
  EXPECT_NE(bad.output.find("Error code: 0x1\n"), std::string::npos) << bad.output;

  EXPECT_EQ(Vrig("vm rm App/App.vmc", "LANGUAGE=en", storage).status, 0);
  EXPECT_EQ(Vrig("vm show " + renamed).status, 1);
  EXPECT_TRUE(std::filesystem::is_empty(storage)) << "the machine folder went with it";
}

TEST(VrigTest, UnknownCommandsAndWrongArgumentsPrintUsage) {
  EXPECT_NE(Vrig("frobnicate").output.find("usage: vrig"), std::string::npos);
  for (const char* arguments : {"frobnicate", "", "info extra", "vm", "vm create only-storage", "vm launch x"})
    EXPECT_EQ(Vrig(arguments).status, 2) << arguments;
  EXPECT_EQ(Vrig("help").status, 0);
}

TEST(VrigTest, MissingModuleIsReportedWithTheLoadersReasons) {
  // A copy of vrig with no module beside it and none named.
  const HostTest::TempDir dir;
  const std::string folder = dir.Path();
  ASSERT_EQ(std::system(("cp " + std::string(VRIG_PATH) + " " + folder + "/vrig").c_str()), 0);
  const VrigRun run = Vrig("info", "VELLUMRIG_LIBRARY=/nonexistent/libvellumrig.so LD_LIBRARY_PATH=",
                           ".", folder + "/vrig");
  EXPECT_EQ(run.status, 1) << run.output;
  EXPECT_NE(run.output.find("Cannot load the vellumrig module"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("/nonexistent/libvellumrig.so"), std::string::npos) << run.output;
}

}  // namespace
