// Scratch folders and plain POSIX helpers for the host tests: the tests
// check the folder and file objects against what the system itself says.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "vellumrig/error.h"
#include "vellumrig/error_text.h"

namespace HostTest {

class TempDir {
 public:
  TempDir() : path_((std::filesystem::temp_directory_path() / "vellumrig-host-XXXXXX").string()) {
    if (!::mkdtemp(path_.data())) throw std::runtime_error("mkdtemp failed");
  }
  ~TempDir() { std::filesystem::remove_all(path_, ignored_); }
  TempDir(const TempDir&) = delete;

  const std::string& Path() const { return path_; }
  std::string Join(const std::string& name) const { return path_ + "/" + name; }
  std::u16string Wide(const std::string& name = {}) const {
    return Common::FromUtf8(name.empty() ? path_ : Join(name));
  }

 private:
  std::string path_;
  std::error_code ignored_;
};

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  ASSERT_TRUE(out << bytes << std::flush) << path;
}

// The file's bytes, or "<missing>" when it cannot be opened.
inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "<missing>";
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return std::move(bytes).str();
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
  return cause.Code() == Common::kWindowsErrorCode ? cause.GetNumber("code") & 0xFFFF : -1;
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
  EXPECT_EQ(status, 0) << "failed check number " << WEXITSTATUS(status);
}

}  // namespace HostTest
