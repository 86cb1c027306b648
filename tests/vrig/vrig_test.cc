// vrig as a user runs it.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace {

struct VrigRun {
  int status;
  std::string output;  // standard output and standard error
};

// Runs vrig with English texts unless `environment` says otherwise.
VrigRun Vrig(const std::string& arguments, const std::string& environment = "LANGUAGE=en",
             const std::string& folder = ".") {
  const std::string command = "cd " + folder + " && env " + environment + " " +
                              std::string(VRIG_PATH) + " " + arguments + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  VrigRun run{-1, {}};
  if (!pipe) return run;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) run.output.append(buffer, n);
  const int status = pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

TEST(VrigTest, InfoPrintsEveryPropertyInOrder) {
  const VrigRun run = Vrig("info");
  ASSERT_EQ(run.status, 0) << run.output;
  const char* lines[] = {"ID = E7F120F4-5479-4C91-AEA0-ACE049E8F4CC\n",
                         "ResourceName = VHDX files\n",
                         "Name = Virtual PC\n",
                         "SupportedFirmwareTypes = 1, 0\n",
                         "Vendor = Microsoft\n",
                         "Version = 5.3.582.27\n",
                         "UUID = E7F120F4-5479-4C91-AEA0-ACE049E8F4CC\n",
                         "CpuVendor = ",
                         "CpuArchitecture = ",
                         "CpuFamily = ",
                         "CpuModel = "};
  size_t at = 0;
  for (const char* line : lines) {
    const size_t found = run.output.find(line, at);
    ASSERT_NE(found, std::string::npos) << line << "\n" << run.output;
    at = found;
  }
}

TEST(VrigTest, InfoSpeaksTheLanguageOfTheEnvironment) {
  const VrigRun german = Vrig("info", "LANGUAGE=de");
  ASSERT_EQ(german.status, 0) << german.output;
  EXPECT_NE(german.output.find("ResourceName = VHDX-Dateien\n"), std::string::npos) << german.output;
  const VrigRun unknown = Vrig("info", "LANGUAGE=xx LC_ALL=C");
  EXPECT_NE(unknown.output.find("ResourceName = VHDX files\n"), std::string::npos) << unknown.output;
}

TEST(VrigTest, MachinesAreMadeChangedFoundRenamedAndRemoved) {
  char folder[] = "/tmp/vrig-vm-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string storage = folder;
  const std::string vmc = storage + "/Web/Web.vmc";

  const VrigRun create = Vrig("vm create " + storage + " Web");
  ASSERT_EQ(create.status, 0) << create.output;
  EXPECT_EQ(create.output, vmc + "\n");
  EXPECT_EQ(Vrig("vm set " + vmc + " Memory 1073741824").status, 0);
  EXPECT_EQ(Vrig("vm set " + vmc + " FirmwareType 1").status, 0);
  const VrigRun show = Vrig("vm show " + vmc);
  EXPECT_NE(show.output.find("Name = Web\nFileName = " + vmc + "\nMemory = 1024\n"), std::string::npos)
      << show.output;
  EXPECT_NE(show.output.find("FirmwareType = 1\n"), std::string::npos) << show.output;
  EXPECT_EQ(Vrig("vm find " + storage + " Web").output, vmc + "\n");

  const VrigRun rename = Vrig("vm rename " + vmc + " App");
  ASSERT_EQ(rename.status, 0) << rename.output;
  const std::string renamed = storage + "/App/App.vmc";
  EXPECT_EQ(rename.output, renamed + "\n");
  const VrigRun gone = Vrig("vm find " + storage + " Web");
  EXPECT_EQ(gone.status, 1);
  EXPECT_NE(gone.output.find("no machine 'Web'"), std::string::npos);

  // A failure prints the chain: the outer meaning, then each cause.
  const VrigRun bad = Vrig("vm set " + renamed + " Memory lots");
  EXPECT_EQ(bad.status, 1);
  const std::size_t outer = bad.output.find("Failed to set property 'Memory' to 'lots'.");
  const std::size_t code = bad.output.find("Error code: 0x53006F");
  EXPECT_NE(outer, std::string::npos) << bad.output;
  EXPECT_LT(outer, code);
  EXPECT_NE(bad.output.find("Error code: 0x1\n"), std::string::npos) << bad.output;

  EXPECT_EQ(Vrig("vm rm " + renamed).status, 0);
  EXPECT_EQ(Vrig("vm show " + renamed).status, 1);
  EXPECT_EQ(std::system(("rmdir " + storage).c_str()), 0) << "the machine folder went with it";
}

TEST(VrigTest, RelativePathsAreTakenFromTheCurrentFolder) {
  char folder[] = "/tmp/vrig-rel-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const VrigRun create = Vrig("vm create . Here", "LANGUAGE=en", folder);
  ASSERT_EQ(create.status, 0) << create.output;
  EXPECT_EQ(create.output, std::string(folder) + "/Here/Here.vmc\n");
  EXPECT_EQ(Vrig("vm show Here/Here.vmc", "LANGUAGE=en", folder).status, 0);
  EXPECT_EQ(Vrig("vm rm Here/Here.vmc", "LANGUAGE=en", folder).status, 0);
  EXPECT_EQ(std::system(("rmdir " + std::string(folder)).c_str()), 0);
}

TEST(VrigTest, UnknownCommandsAndWrongArgumentsPrintUsage) {
  const VrigRun unknown = Vrig("frobnicate");
  EXPECT_EQ(unknown.status, 2);
  EXPECT_NE(unknown.output.find("usage: vrig"), std::string::npos);
  EXPECT_EQ(Vrig("").status, 2);
  EXPECT_EQ(Vrig("info extra").status, 2);
  EXPECT_EQ(Vrig("vm").status, 2);
  EXPECT_EQ(Vrig("vm create only-storage").status, 2);
  EXPECT_EQ(Vrig("vm launch x").status, 2);
  EXPECT_EQ(Vrig("help").status, 0);
}

TEST(VrigTest, MissingModuleIsReportedWithTheLoadersReasons) {
  // A copy of vrig with no module beside it and none named.
  char folder[] = "/tmp/vrig-test-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  const std::string copy = std::string(folder) + "/vrig";
  ASSERT_EQ(std::system(("cp " + std::string(VRIG_PATH) + " " + copy).c_str()), 0);
  const std::string command = "env VELLUMRIG_LIBRARY=/nonexistent/libvellumrig.so LD_LIBRARY_PATH= " +
                              copy + " info 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
  const int status = pclose(pipe);
  std::system(("rm -rf " + std::string(folder)).c_str());
  EXPECT_EQ(WEXITSTATUS(status), 1) << output;
  EXPECT_NE(output.find("Cannot load the vellumrig module"), std::string::npos) << output;
  EXPECT_NE(output.find("/nonexistent/libvellumrig.so"), std::string::npos) << output;
}

}  // namespace
