// Command lines for the tests: the built vrig, and the independent tools
// (qemu-img, qemu-io, vhdiinfo) run as black boxes.
#pragma once

#include <sys/wait.h>

#include <cstdint>
#include <cstdio>
#include <string>

namespace HostTest {

struct Outcome {
  int status = -1;
  std::string output;  // standard output and standard error
};

inline Outcome Shell(const std::string& command) {
  Outcome run;
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.output.append(buffer, n);
  const int status = ::pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

inline bool Have(const std::string& program) { return Shell("command -v " + program + " >/dev/null").status == 0; }

}  // namespace HostTest
