#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "common/assert.h"

namespace Common {
namespace {

// The policy is read once per process, so each case runs in a new one.
TEST(AssertPolicyTest, EnvironmentDecidesWhatAFailureDoes) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // Each child runs this body again: the file's name comes from the parent
  // through the environment, so that only the parent makes it new.
  if (!std::getenv("ASSERT_TEST_LOG")) {
    const std::string name = testing::TempDir() + "assert_policy." + std::to_string(::getpid()) + ".log";
    std::remove(name.c_str());
    ::setenv("ASSERT_TEST_LOG", name.c_str(), 1);
  }
  const std::string logFile = std::getenv("ASSERT_TEST_LOG");
  struct Case {
    const char* Policy;  // null: unset
    const char* Target;  // null: unset
    bool Aborts;
    const char* Stderr;
  } cases[] = {
      {nullptr, nullptr, false,
       "^policy 4e\nAssertion failed: 1 == 2, file here.cc, line 9\n.+\nreturned 1\n$"},
      {"0", nullptr, false, "^policy ffffffff\nreturned 0\n$"},
      {"20", nullptr, true, "^policy 20\n$"},
      {"abort", nullptr, true, "^policy 20\n$"},
      {"abort stack debug", nullptr, true, "^policy 62\n$"},
      {"log frobnicate stack", nullptr, false, "^policy ffffffff\nreturned 0\n$"},
      {"log", "/nonexistent/folder/assert.log", false,
       "^policy 4\nAssertion failed: 1 == 2, file here.cc, line 9\nreturned 1\n$"},
      {"0x4", "stdout", false, "^policy 4\nreturned 1\n$"},
      {"log", logFile.c_str(), false, "^policy 4\nreturned 1\n$"},
      // No terminal to ask on: the answer is "Retry", and without a debugger
      // the failure is reported back.
      {"msgbox", nullptr, false, "^policy 10\nreturned 1\n$"},
      {"msgbox abort", nullptr, true, "^policy 30\n$"},
  };
  for (const Case& c : cases) {
    const auto child = [&c] {
      ::setsid();  // no controlling terminal
      if (c.Policy) ::setenv("KELVARA_SAFE_ASSERT", c.Policy, 1);
      if (c.Target) ::setenv("KELVARA_SAFE_ASSERT_LOGFILE", c.Target, 1);
      std::fprintf(stderr, "policy %x\n", static_cast<unsigned>(GetAssertPolicy()));
      const int result = Assert("1 == 2", "here.cc", 9);
      std::fprintf(stderr, "returned %d\n", result);
      std::exit(0);
    };
    const std::string name = c.Policy ? c.Policy : "(unset)";
    if (c.Aborts)
      EXPECT_EXIT(child(), testing::KilledBySignal(SIGABRT), c.Stderr) << name;
    else
      EXPECT_EXIT(child(), testing::ExitedWithCode(0), c.Stderr) << name;
  }
  std::stringstream logged;
  logged << std::ifstream(logFile).rdbuf();
  EXPECT_EQ(logged.str().rfind("Assertion failed: 1 == 2, file here.cc, line 9\n", 0), 0u) << logged.str();
  std::remove(logFile.c_str());
  ::unsetenv("ASSERT_TEST_LOG");
}

}  // namespace
}  // namespace Common
