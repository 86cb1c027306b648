// vrig as a user runs it.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vrig_run.h"

namespace {

using VrigRun = HostTest::Outcome;
using VrigTest::ExpectRun;

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
  ExpectRun(Vrig("info", "LANGUAGE=de"), 0, "ResourceName = VHDX-Dateien\n");
  ExpectRun(Vrig("info", "LANGUAGE=xx LC_ALL=C"), 0, "ResourceName = VHDX files\n");
}

// The module keeps its own level; --trace governs its lines all the same.
TEST(VrigTest, TraceLevelGovernsTheModulesLines) {
  const HostTest::TempDir dir;
  const std::string env = "LANGUAGE=en VELLUMRIG_LOGGING=stderr";
  ExpectRun(Vrig("--trace 2 vm find " + dir.Path() + " Web", env), 1, "vellumrig: level 2, facility 83, code 0x0: ");
  const VrigRun above = Vrig("--trace 3 vm find " + dir.Path() + " Web", env);
  EXPECT_EQ(above.output.find("vellumrig: level 2"), std::string::npos) << above.output;

  // Copies of vrig and the module without the logging library: tracing
  // goes quiet and the command works.
  const std::string bin = dir.Join("bin"), lib = dir.Join("lib");
  ASSERT_EQ(std::system(("mkdir " + bin + " " + lib + " && cp " + VRIG_PATH + " " + bin + " && cp " +
                         VELLUMRIG_MODULE_PATH + " " + lib)
                            .c_str()),
            0);
  const VrigRun quiet = Vrig("--trace 0 vm find " + dir.Path() + " Web", env + " LD_LIBRARY_PATH=", ".", bin + "/vrig");
  ExpectRun(quiet, 1, "no machine 'Web'");
  EXPECT_EQ(quiet.output.find("vellumrig: level"), std::string::npos) << quiet.output;
}

TEST(VrigTest, MachinesAreMadeChangedFoundRenamedAndRemoved) {
  const HostTest::TempDir dir;
  const std::string& storage = dir.Path();
  const std::string vmc = storage + "/Web/Web.vmc";
  // Relative paths are taken from the current folder.
  const VrigRun create = Vrig("vm create . Web", "LANGUAGE=en", storage);
  ASSERT_EQ(create.status, 0) << create.output;
  EXPECT_EQ(create.output, vmc + "\n");
  EXPECT_EQ(Vrig("vm set " + vmc + " Memory 1536M").status, 0);
  const VrigRun show = Vrig("vm show " + vmc);
  EXPECT_NE(show.output.find("Name = Web\nFileName = " + vmc + "\nMemory = 1536M\n"), std::string::npos)
      << show.output;
  EXPECT_EQ(Vrig("vm find " + storage + " Web").output, vmc + "\n");

  const std::string renamed = storage + "/App/App.vmc";
  EXPECT_EQ(Vrig("vm rename " + vmc + " App").output, renamed + "\n");
  ExpectRun(Vrig("vm find " + storage + " Web"), 1, "no machine 'Web'");

  // A failure prints a line per cause, the outer meaning first; -v the
  // full text of the chain.
  const VrigRun bad = Vrig("vm set " + renamed + " Name ..");
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.output, "vrig: Failed to rename virtual machine 'App' to '..'.\n"
                        "  The name '..' cannot be used for a virtual machine.\n");
  const VrigRun full = Vrig("vm set " + renamed + " Name .. -v");
  ExpectRun(full, 1, "Error code: 0x5301DF\n");
  const std::size_t outer = full.output.find("Failed to rename virtual machine 'App' to '..'.");
  EXPECT_NE(outer, std::string::npos) << full.output;
  EXPECT_LT(outer, full.output.find("Error code: 0x530015"));

  // Listed, and shown as JSON that a parser of its own reads back.
  ASSERT_EQ(Vrig("vm create " + storage + " Db").status, 0);
  EXPECT_EQ(Vrig("vm list " + storage).output,
            "App\t" + renamed + "\nDb\t" + storage + "/Db/Db.vmc\n");
  EXPECT_EQ(Vrig("vm list " + storage + " --json | jq -r '.[1].name'").output, "Db\n");
  EXPECT_EQ(Vrig("vm show " + renamed + " --json | jq -r '.Name + \" \" + .Memory'").output, "App 1536\n");
  EXPECT_EQ(Vrig("info --json | jq -r '.SupportedFirmwareTypes | length'").output, "2\n");
  ASSERT_EQ(Vrig("vm rm " + storage + "/Db/Db.vmc").status, 0);

  EXPECT_EQ(Vrig("vm rm App/App.vmc", "LANGUAGE=en", storage).status, 0);
  EXPECT_EQ(Vrig("vm show " + renamed).status, 1);
  EXPECT_TRUE(std::filesystem::is_empty(storage)) << "the machine folder went with it";
}

// The module writes the template over a machine and takes memory in bytes,
// rounding down; vrig keeps machines unless told and refuses what a machine
// cannot hold, saying why.
TEST(VrigTest, MachinesAreKeptAndTakeOnlyValuesTheyCanHold) {
  const HostTest::TempDir dir;
  const std::string vmc = dir.Path() + "/Web/Web.vmc";
  const auto shown = [&](const std::string& line) {
    return Vrig("vm show " + vmc).output.find(line + "\n") != std::string::npos;
  };
  ASSERT_EQ(Vrig("vm create " + dir.Path() + " Web").status, 0);
  EXPECT_EQ(Vrig("vm set " + vmc + " Memory 4G").status, 0);
  ExpectRun(Vrig("vm create " + dir.Path() + " Web"), 1, "exists; --force");
  EXPECT_TRUE(shown("Memory = 4G"));
  EXPECT_EQ(Vrig("vm create " + dir.Path() + " Web --force").status, 0);
  EXPECT_TRUE(shown("Memory = 128M"));

  const struct {
    const char* property;
    const char* value;
    const char* says;  // null: accepted
  } cases[] = {
      {"Memory", "4096", "a number without a unit is bytes"},
      {"Memory", "1536K", "whole mebibytes"},
      {"Memory", "4096T", "whole mebibytes"},
      {"Memory", "4096M", nullptr},
      {"FirmwareType", "2", "0 (bios) or 1 (efi)"},
      {"FirmwareType", "efi", nullptr},
      {"CPUs", "4", "one processor"},
      {"ID", "x", "ID is read-only"},
      {"PowerState", "x", "read-only"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.property) + " " + c.value);
    ExpectRun(Vrig("vm set " + vmc + " " + c.property + " " + c.value), c.says ? 1 : 0, c.says ? c.says : "");
  }
  EXPECT_TRUE(shown("Memory = 4G") && shown("FirmwareType = 1") && shown("CPUs = 1"));

  // An empty storage is the default machines folder, not the current one.
  const VrigRun fallback = Vrig("vm create '' Dflt", "LANGUAGE=en VELLUMRIG_MACHINES=" + dir.Path() + "/default");
  EXPECT_EQ(fallback.output, dir.Path() + "/default/Dflt/Dflt.vmc\n");
}

// A slip prints one line: what is wrong and where help is; help is asked
// at every level.
TEST(VrigTest, SlipsPrintOneLineAndHelpIsAtEveryLevel) {
  const struct {
    const char* arguments;
    const char* output;
  } slips[] = {
      {"frobnicate", "vrig: unknown command 'frobnicate'; see 'vrig --help'\n"},
      {"", "vrig: no command given; see 'vrig --help'\n"},
      {"vm launch x", "vrig: unknown vm command 'launch'; see 'vrig vm --help'\n"},
      {"vm create only-storage",
       "vrig: missing arguments; usage: vrig vm create <storage> <name> [--force]; see 'vrig vm create --help'\n"},
      {"vhdx read a.vhdx 1 2 3", "vrig: too many arguments; usage: vrig vhdx read <file> <first sector> <count>; "
                                 "see 'vrig vhdx read --help'\n"},
      {"vhdx read a.vhdx 1 --count 3", "vrig: unknown option --count; usage: vrig vhdx read <file> <first sector> "
                                       "<count>; see 'vrig vhdx read --help'\n"},
      {"vhdx read a.vhdx 1 2x", "vrig: not a number for the count: '2x'; see 'vrig vhdx read --help'\n"},
      {"vhdx read a.vhdx 1 18446744073709551616",
       "vrig: the count is out of range: '18446744073709551616' is more than 18446744073709551615; see 'vrig vhdx "
       "read --help'\n"},
      {"vhdx create a.vhdx 1G --sector-size=1024",
       "vrig: --sector-size must be 512 or 4096, not 1024; see 'vrig vhdx create --help'\n"},
  };
  for (const auto& slip : slips) {
    const VrigRun run = Vrig(slip.arguments);
    EXPECT_EQ(run.status, 2) << slip.arguments;
    EXPECT_EQ(run.output, slip.output) << slip.arguments;
  }
  const struct {
    const char* arguments;
    const char* first;
  } helps[] = {{"--help", "vrig 0."},
               {"help", "vrig 0."},
               {"vhdx --help", "vrig vhdx: containers"},
               {"vm disk --help", "vrig vm disk: the hard disks"},
               {"vhdx create --help", "usage:\n  vrig vhdx create <file>"},
               {"vm disk add x --help", "usage:\n  vrig vm disk add <vmc>"},
               {"--version", "vrig 0."}};
  for (const auto& help : helps) {
    const VrigRun run = Vrig(help.arguments);
    EXPECT_EQ(run.status, 0) << help.arguments;
    EXPECT_EQ(run.output.find(help.first), 0u) << help.arguments << "\n" << run.output;
  }
}

TEST(VrigTest, MissingModuleIsReportedWithTheLoadersReasons) {
  // A copy of vrig with no module beside it and none named.
  const HostTest::TempDir dir;
  const std::string folder = dir.Path();
  ASSERT_EQ(std::system(("cp " + std::string(VRIG_PATH) + " " + folder + "/vrig").c_str()), 0);
  const VrigRun run = Vrig("info", "VELLUMRIG_LIBRARY=/nonexistent/libvellumrig.so LD_LIBRARY_PATH=",
                           ".", folder + "/vrig");
  ExpectRun(run, 1, "Cannot load the vellumrig module");
  EXPECT_NE(run.output.find("/nonexistent/libvellumrig.so"), std::string::npos) << run.output;
}

}  // namespace

namespace {

// A machine's disk from the command line, through the loaded module: made,
// written and read, its raw metadata set and read, then taken out without
// and with its file.
TEST(VrigTest, MachineDisksFromTheCommandLine) {
  const HostTest::TempDir dir;
  const std::string vmc = dir.Path() + "/Db/Db.vmc";
  ASSERT_EQ(Vrig("vm create . Db", "LANGUAGE=en", dir.Path()).status, 0);
  const std::string disk = dir.Path() + "/Db/data.vhdx";
  const VrigRun add = Vrig("vm disk add " + vmc + " scsi 0 2 data.vhdx 8M");
  ASSERT_EQ(add.status, 0) << add.output;
  EXPECT_EQ(add.output, disk + "\n");
  EXPECT_EQ(Vrig("vm disk add " + vmc + " scsi 0 2 other.vhdx 8M").status, 1) << "the slot is taken";
  EXPECT_EQ(Vrig("vm disk list " + vmc).output, "scsi 0:2 " + disk + "\n");

  const std::string sectors = dir.Join("in");
  HostTest::Shell("head -c 1536 /dev/urandom > " + sectors);
  ASSERT_EQ(Vrig("vm disk write " + vmc + " " + disk + " 16381 < " + sectors).status, 0);
  EXPECT_EQ(Vrig("vm disk read " + vmc + " " + disk + " 16381 3 | cmp - " + sectors).status, 0);
  EXPECT_EQ(Vrig("vm disk read " + vmc + " " + disk + " 16382 3").status, 1) << "past the end";

  const std::string key = " 0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0 1";
  ASSERT_EQ(Vrig("vm disk meta " + vmc + " " + disk + key + " --set 00ff10").status, 0);
  EXPECT_EQ(Vrig("vm disk meta " + vmc + " " + disk + key).output, "00ff10\n");

  ASSERT_EQ(Vrig("vm disk rm " + vmc + " " + disk).status, 0);
  EXPECT_EQ(Vrig("vm disk list " + vmc).output, "");
  EXPECT_TRUE(HostTest::Exists(disk)) << "detaching keeps the file";
  ASSERT_EQ(Vrig("vm disk attach " + vmc + " ide 1 0 " + disk).status, 0);
  ASSERT_EQ(Vrig("vm disk rm " + vmc + " " + disk + " --delete").status, 0);
  EXPECT_FALSE(HostTest::Exists(disk));
}

}  // namespace

// A plan is checked and printed without a file being made; --create makes
// exactly what it printed.
TEST(VrigTest, APlanIsCheckedBeforeTheMachineIsMade) {
  const HostTest::TempDir dir;
  const std::string plan = "vm plan " + dir.Path() + " Web --memory 2G --disk scsi:0:0:system.vhdx:8M";
  const VrigRun dry = Vrig(plan);
  ASSERT_EQ(dry.status, 0) << dry.output;
  EXPECT_NE(dry.output.find("disk scsi 0:0 " + dir.Join("Web/system.vhdx") +
                            " 8M, 16384 sectors of 512 bytes, CHS 1/255/63"),
            std::string::npos)
      << dry.output;
  EXPECT_FALSE(std::filesystem::exists(dir.Join("Web")));

  const VrigRun refused = Vrig(plan + " --disk ide:0:1:big.vhdx:65T --disk scsi:0:0:twice.vhdx:1M --create");
  ExpectRun(refused, 1, "twice.vhdx:1M: its slot is already taken");
  EXPECT_NE(refused.output.find("big.vhdx:65T: The target size of the virtual disk is not supported"),
            std::string::npos)
      << refused.output;
  EXPECT_FALSE(std::filesystem::exists(dir.Join("Web")));

  ExpectRun(Vrig(plan + " --create"), 0, "created " + dir.Join("Web/Web.vmc"));
  EXPECT_EQ(Vrig("vm disk list " + dir.Join("Web/Web.vmc")).output,
            "scsi 0:0 " + dir.Join("Web/system.vhdx") + "\n");
  ExpectRun(Vrig(plan), 1, "already exists");
}
