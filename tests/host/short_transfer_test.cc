// Regular files rarely give short transfers or EINTR, so this program puts
// its own pread and pwrite in front of the system's: while a test arms them
// they move at most a few bytes per call and fail every other call with
// EINTR, which the files must ride out.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "host/temp_dir.h"
#include "vellumrig/file.h"
#include "vellumrig/host.h"

namespace {

std::atomic<bool> g_armed{false};
std::atomic<int> g_calls{0};
constexpr std::size_t kStep = 3;

template <class Fn>
Fn Next(const char* name) {
  static_assert(sizeof(Fn) == sizeof(void*));
  void* symbol = ::dlsym(RTLD_NEXT, name);
  Fn fn;
  __builtin_memcpy(&fn, &symbol, sizeof fn);
  return fn;
}

// Every other armed call is interrupted before it moves anything.
bool Interrupt() {
  if (g_calls.fetch_add(1) % 2 == 0) return false;
  errno = EINTR;
  return true;
}

}  // namespace

extern "C" ssize_t pread(int fd, void* buffer, size_t size, off_t offset) {
  using Fn = ssize_t (*)(int, void*, size_t, off_t);
  static const Fn real = Next<Fn>("pread");
  if (!g_armed) return real(fd, buffer, size, offset);
  if (Interrupt()) return -1;
  return real(fd, buffer, std::min(size, kStep), offset);
}

extern "C" ssize_t pwrite(int fd, const void* buffer, size_t size, off_t offset) {
  using Fn = ssize_t (*)(int, const void*, size_t, off_t);
  static const Fn real = Next<Fn>("pwrite");
  if (!g_armed) return real(fd, buffer, size, offset);
  if (Interrupt()) return -1;
  return real(fd, buffer, std::min(size, kStep), offset);
}

namespace {

TEST(ShortTransferTest, ReadsAndWritesCompleteAcrossShortAndInterruptedCalls) {
  HostTest::TempDir dir;
  std::unique_ptr<rio_dir> folder = Host::OpenFolder(dir.Wide());
  std::unique_ptr<rio_file> file = folder->CreateFile(u"f.bin", 0, 0);
  ASSERT_TRUE(file);
  const std::string text = "a sentence longer than one step";

  g_calls = 0;
  g_armed = true;
  const std::size_t written = file->Write(text.data(), text.size());
  const int writeCalls = g_calls.exchange(0);
  file->Seek(2);
  std::string back(text.size(), '\0');
  const std::size_t read = file->Read(back.data(), back.size());
  const int readCalls = g_calls.exchange(0);
  g_armed = false;

  EXPECT_FALSE(file->Failed()) << Common::ToUtf8(file->Status.GetText());
  EXPECT_EQ(written, text.size());
  EXPECT_EQ(read, text.size() - 2);
  EXPECT_EQ(back.substr(0, read), text.substr(2));
  EXPECT_EQ(file->SeekCurrent(0), static_cast<std::int64_t>(text.size()));
  // The guard must really have cut the transfers up.
  EXPECT_GE(writeCalls, static_cast<int>(2 * (text.size() / kStep)));
  EXPECT_GE(readCalls, static_cast<int>(2 * ((text.size() - 2) / kStep)));
  EXPECT_EQ(HostTest::ReadBytes(dir.Join("f.bin")), text);
}

}  // namespace
