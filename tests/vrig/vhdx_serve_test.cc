// The nbdkit plugin and vrig vhdx serve, seen from NBD clients: qemu-img,
// qemu-io and nbdinfo (Debian qemu-utils, libnbd-bin) over a Unix socket in
// a scratch folder. Every server a test starts is stopped by its guard.
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "host/shell.h"
#include "host/temp_dir.h"

// Built only where nbdkit's plugin header is.
#ifndef NBDKIT_PLUGIN_PATH
#define NBDKIT_PLUGIN_PATH ""
#endif
// Under the sanitizers: their runtimes, for nbdkit to load the plugin.
#ifndef NBDKIT_PRELOAD
#define NBDKIT_PRELOAD ""
#endif

namespace {

using HostTest::Outcome;
using HostTest::ReadBytes;
using HostTest::Shell;
using HostTest::WriteBytes;

constexpr std::uint64_t kMiB = 1 << 20;

std::string Vrig(const std::string& arguments) { return "env LANGUAGE=en " VRIG_PATH " vhdx " + arguments; }

// What a server's command line starts with: nbdkit leaks by design at exit,
// which is not the plugin's to answer for.
std::string ServerEnvironment() {
  const std::string preload = NBDKIT_PRELOAD;
  return preload.empty() ? "" : "env LD_PRELOAD=" + preload + " ASAN_OPTIONS=detect_leaks=0 ";
}

// A server on `socket` until the guard goes: nbdkit itself, or vrig vhdx
// serve in the background.
class Server {
 public:
  Server(const std::string& socket, const std::string& command, bool throughVrig)
      : socket_(socket), throughVrig_(throughVrig) {
    const std::string pidfile = socket + ".pid";
    const Outcome run = throughVrig ? Shell("(" + command + " > " + socket + ".log 2>&1 & echo $! > " + pidfile + ")")
                                    : Shell(command + " --pidfile " + pidfile);
    started_ = run.status == 0;
    log_ = run.output;
    // nbdkit writes its pid once it listens; vrig's server is ready when
    // a client gets an answer.
    for (int i = 0; i < 100 && started_; ++i) {
      if (pid_ == 0) pid_ = std::atoi(ReadBytes(pidfile).c_str());
      if (pid_ > 0 && Shell("nbdinfo --size '" + Uri() + "'").status == 0) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    started_ = false;
  }
  ~Server() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    for (int i = 0; i < 100 && ::kill(pid_, 0) == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // nbdkit leaves its socket; vrig removes it, which a test checks.
    if (!throughVrig_) std::remove(socket_.c_str());
  }
  bool Started() const { return started_; }
  std::string Log() const { return log_ + ReadBytes(socket_ + ".log"); }
  std::string Uri() const { return "nbd+unix:///?socket=" + socket_; }

 private:
  std::string socket_;
  bool throughVrig_;
  pid_t pid_ = 0;
  bool started_ = false;
  std::string log_;
};

class VhdxServeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(NBDKIT_PLUGIN_PATH).empty()) GTEST_SKIP() << "the plugin was not built (no nbdkit-plugin-dev)";
    for (const char* tool : {"nbdkit", "nbdinfo", "qemu-img", "qemu-io"})
      if (!HostTest::Have(tool)) GTEST_SKIP() << tool << " is missing (scripts/install-deps.sh installs it)";
  }
  void Run(const std::string& command) {
    const Outcome run = Shell(command);
    ASSERT_EQ(run.status, 0) << command << "\n" << run.output;
  }
  std::string Nbdkit(const std::string& file, bool readOnly) {
    return ServerEnvironment() + "nbdkit --unix " + dir.Join("nbd.sock") + " " NBDKIT_PLUGIN_PATH " file=" + file +
           (readOnly ? " readonly=true" : "");
  }
  std::string Sum(const std::string& file) { return Shell("sha256sum < " + file).output; }

  HostTest::TempDir dir;
};

// nbdinfo --map as (offset, length, type) lines.
std::vector<std::tuple<std::uint64_t, std::uint64_t, int>> Extents(const std::string& uri) {
  const Outcome run = Shell("nbdinfo --map '" + uri + "'");
  EXPECT_EQ(run.status, 0) << run.output;
  std::vector<std::tuple<std::uint64_t, std::uint64_t, int>> extents;
  std::istringstream lines(run.output);
  for (std::string line; std::getline(lines, line);) {
    std::uint64_t offset = 0, length = 0;
    int type = -1;
    if (std::istringstream(line) >> offset >> length >> type) extents.emplace_back(offset, length, type);
  }
  return extents;
}

TEST_F(VhdxServeTest, ReadsEqualTheExportAndExtentsFollowTheBlocks) {
  for (const std::uint32_t sector : {512u, 4096u}) {
    SCOPED_TRACE(sector);
    const std::string vhdx = dir.Join("disk" + std::to_string(sector) + ".vhdx");
    Run(Vrig("create " + vhdx + " 16M --block-size 1M --sector-size " + std::to_string(sector)));
    std::mt19937_64 random(sector);
    std::string data(kMiB + 3 * sector, '\0');
    for (char& c : data) c = static_cast<char>(random());
    WriteBytes(dir.Join("data"), data);
    // Blocks 2 and 3 get data, block 9 one sector of it.
    Run(Vrig("write " + vhdx + " " + std::to_string(2 * kMiB / sector) + " < " + dir.Join("data")));
    Run("head -c " + std::to_string(sector) + " " + dir.Join("data") + " | " +
        Vrig("write " + vhdx + " " + std::to_string(9 * kMiB / sector + 5)));
    const std::string before = Sum(vhdx);

    Server server(dir.Join("nbd.sock"), Nbdkit(vhdx, true), false);
    ASSERT_TRUE(server.Started()) << server.Log();
    Run("qemu-img convert -f raw -O raw '" + server.Uri() + "' " + dir.Join("nbd.raw"));
    Run(Vrig("export " + vhdx + " " + dir.Join("export" + std::to_string(sector) + ".raw")));
    EXPECT_EQ(Shell("cmp " + dir.Join("nbd.raw") + " " + dir.Join("export" + std::to_string(sector) + ".raw")).status,
              0);
    const std::vector<std::tuple<std::uint64_t, std::uint64_t, int>> expected{
        {0, 2 * kMiB, 3}, {2 * kMiB, 2 * kMiB, 0}, {4 * kMiB, 5 * kMiB, 3}, {9 * kMiB, kMiB, 0}, {10 * kMiB, 6 * kMiB, 3}};
    EXPECT_EQ(Extents(server.Uri()), expected);
    EXPECT_NE(Shell("nbdinfo '" + server.Uri() + "'").output.find("block_size_minimum: " + std::to_string(sector)),
              std::string::npos);
    std::remove(dir.Join("nbd.raw").c_str());
    EXPECT_EQ(Sum(vhdx), before) << "a read-only serve changed the container";
  }
}

TEST_F(VhdxServeTest, WritesOverNbdLandInTheChildOfAChain) {
  const std::string base = dir.Join("base.vhdx"), middle = dir.Join("middle.vhdx"), top = dir.Join("top.vhdx");
  std::mt19937_64 random(7);
  std::string expected(8 * kMiB, '\0');
  for (char& c : expected) c = static_cast<char>(random());
  WriteBytes(dir.Join("base.raw"), expected);
  Run(Vrig("import " + dir.Join("base.raw") + " " + base));
  Run(Vrig("create --parent " + base + " " + middle));
  Run("head -c 4096 /dev/zero | tr '\\0' '\\001' | " + Vrig("write " + middle + " 100"));
  expected.replace(100 * 512, 4096, 4096, '\x01');
  Run(Vrig("create --parent " + middle + " " + top));
  const std::string baseSum = Sum(base), middleSum = Sum(middle);
  {
    Server server(dir.Join("nbd.sock"), Nbdkit(top, false), false);
    ASSERT_TRUE(server.Started()) << server.Log();
    // Served, the container is in nobody else's hands.
    EXPECT_NE(Shell("head -c 512 /dev/zero | " + Vrig("write " + top + " 0")).status, 0);
    // Whole sectors, a range inside sectors, and zeros over the base's data.
    Run("qemu-io -f raw -c 'write -q -P 0xab 1M 64k' -c 'write -q -P 0xcd 50001 999' -c 'write -q -z 3M 1M' "
        "-c 'flush' '" + server.Uri() + "'");
  }
  expected.replace(kMiB, 64 * 1024, 64 * 1024, '\xab');
  expected.replace(50001, 999, 999, '\xcd');
  expected.replace(3 * kMiB, kMiB, kMiB, '\0');
  WriteBytes(dir.Join("expected.raw"), expected);
  Run(Vrig("export " + top + " " + dir.Join("top.raw")));
  EXPECT_EQ(Shell("cmp " + dir.Join("top.raw") + " " + dir.Join("expected.raw")).status, 0);
  EXPECT_EQ(Shell(Vrig("read " + top + " 97 2")).output, expected.substr(97 * 512, 1024));
  EXPECT_EQ(Sum(base), baseSum);
  EXPECT_EQ(Sum(middle), middleSum);
}

TEST_F(VhdxServeTest, ReadOnlyServeThroughVrigRefusesWritesAndCleansUp) {
  const std::string vhdx = dir.Join("disk.vhdx"), socket = dir.Join("vrig.sock");
  Run(Vrig("create " + vhdx + " 8M"));
  Run("head -c 4096 /dev/urandom | " + Vrig("write " + vhdx + " 0"));
  const std::string before = Sum(vhdx);
  {
    Server server(socket, ServerEnvironment() + Vrig("serve " + vhdx + " --socket " + socket + " --readonly"), true);
    ASSERT_TRUE(server.Started()) << server.Log();
    EXPECT_NE(server.Log().find("read-only on " + server.Uri()), std::string::npos) << server.Log();
    EXPECT_NE(Shell("qemu-io -f raw -c 'write -q -P 1 0 4096' '" + server.Uri() + "'").status, 0);
    // A second server on the same socket is refused before it starts.
    const Outcome again = Shell(Vrig("serve " + vhdx + " --socket " + socket));
    EXPECT_NE(again.status, 0);
    EXPECT_NE(again.output.find("exists"), std::string::npos) << again.output;
  }
  EXPECT_EQ(Sum(vhdx), before);
  EXPECT_EQ(Shell("test -e " + socket).status, 1) << "the socket was left behind";
}

}  // namespace
