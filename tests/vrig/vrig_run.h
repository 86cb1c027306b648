// What the vrig tests ask of a command line that has finished.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "host/shell.h"

namespace VrigTest {

// The run ended with `status` and said `says` somewhere in what it printed.
inline void ExpectRun(const HostTest::Outcome& run, int status, const std::string& says) {
  EXPECT_EQ(run.status, status) << run.output;
  EXPECT_NE(run.output.find(says), std::string::npos) << run.output;
}

}  // namespace VrigTest
