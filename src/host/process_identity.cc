#include "host/process_identity.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace Host::detail {

bool ProcessStartTime(pid_t pid, std::uint64_t& startTime) {
  if (pid <= 0) return false;
  const std::string path = "/proc/" + std::to_string(pid) + "/stat";
  std::FILE* file = std::fopen(path.c_str(), "re");
  if (!file) return false;
  char buffer[1024];
  const std::size_t n = std::fread(buffer, 1, sizeof buffer - 1, file);
  std::fclose(file);
  buffer[n] = '\0';
  // The command name may hold spaces and parentheses: fields count from the
  // last ')'. After it: state (field 3) ... starttime (field 22).
  const char* at = std::strrchr(buffer, ')');
  if (!at) return false;
  char state = 0;
  unsigned long long start = 0;
  if (std::sscanf(at + 1,
                  " %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %*u %*u %*d %*d %*d %*d %*d %*d %llu",
                  &state, &start) != 2)
    return false;
  if (state == 'Z' || state == 'X' || state == 'x') return false;
  startTime = start;
  return true;
}

}  // namespace Host::detail
