// Scratch folders and plain POSIX helpers for the host tests: the tests
// check the folder and file objects against what the system itself says.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "vellumrig/error.h"
#include "vellumrig/error_text.h"

namespace HostTest {

class TempDir {
 public:
  TempDir() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vellumrig-host-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  std::string Join(const std::string& name) const { return path_ + "/" + name; }
  std::u16string Wide(const std::string& name = {}) const {
    return Common::FromUtf8(name.empty() ? path_ : Join(name));
  }

 private:
  std::string path_;
};

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0) << path;
  ASSERT_EQ(::write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  ::close(fd);
}

inline std::string ReadBytes(const std::string& path) {
  std::string out;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return "<missing>";
  char buffer[4096];
  for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) out.append(buffer, n);
  ::close(fd);
  return out;
}

inline bool Exists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

inline bool IsFolder(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The errno behind a file error, from the operating-system record that the
// error carries as its cause; -1 when there is none.
inline int CauseErrno(const Common::Error& error) {
  const Common::Error cause = error.Reason();
  if (cause.Code() != Common::kWindowsErrorCode) return -1;
  return static_cast<int>(cause.GetNumber("code") & 0xFFFF);
}

inline std::u16string FileNameOf(const Common::Error& error) {
  const char16_t* name = error.GetWideString("fileName");
  return name ? name : u"<none>";
}

// Runs `check` in a child process, which exits with 0 or the number of the
// check that failed.
template <class Check>
void InChild(Check check) {
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) ::_exit(check());
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "failed check number " << WEXITSTATUS(status);
}

}  // namespace HostTest
