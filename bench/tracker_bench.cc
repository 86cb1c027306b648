// What the file tracker costs a writer: 4 KiB random writes into a 1 GiB
// file through a tracked folder and through a plain one, with the same
// flushes, rounds taken in turn (A B, then B A, ...) so that drift in the
// machine hits both alike. Prints each side's median and their ratio.
//
//   tracker_bench [folder] [rounds]    (default: a new folder in $TMPDIR, 10)
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "vellumrig/error_text.h"
#include "vellumrig/file_tracker.h"
#include "vellumrig/host.h"

namespace {

constexpr std::uint64_t kFileSize = 1ull << 30;
constexpr std::size_t kWriteSize = 4096;
constexpr int kWritesPerRound = 50000;
constexpr int kWritesPerFlush = 1000;

bool MakeFile(const std::string& path) {
  const int fd = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool ok = ::ftruncate(fd, kFileSize) == 0;
  ::close(fd);
  return ok;
}

// Seconds for one round of writes through `folder`, or a negative value
// when the file failed.
double Round(rio_dir& folder, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  std::vector<char> block(kWriteSize, 'w');
  const auto start = std::chrono::steady_clock::now();
  {
    auto opened = folder.OpenFile(u"disk.img", kOpenReadWrite);
    auto* file = dynamic_cast<rio_file*>(opened.get());
    if (!file) return -1;
    for (int i = 1; i <= kWritesPerRound; ++i) {
      file->Seek(static_cast<std::int64_t>(random() % (kFileSize / kWriteSize) * kWriteSize));
      file->Write(block.data(), block.size());
      if (i % kWritesPerFlush == 0) file->Flush();
    }
    if (file->Failed()) return -1;
  }
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  std::string root;
  if (argc > 1 && *argv[1]) {
    root = argv[1];
  } else {
    root = (std::filesystem::temp_directory_path() / "tracker-bench-XXXXXX").string();
    if (!::mkdtemp(root.data())) return std::perror("mkdtemp"), 1;
  }
  const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 10;
  const std::string tracked = root + "/tracked", plain = root + "/plain";
  std::filesystem::create_directories(tracked);
  std::filesystem::create_directories(plain);
  if (!MakeFile(tracked + "/disk.img") || !MakeFile(plain + "/disk.img"))
    return std::perror("creating the 1 GiB files"), 1;

  Common::Error error;
  auto tracker = Host::OpenTracker(Common::FromUtf8(root + "/tracker.db"), error);
  if (!tracker || (error = tracker->Track(Common::FromUtf8(tracked)))) {
    std::fprintf(stderr, "%s\n", Common::ToUtf8(Common::FullText(error)).c_str());
    return 1;
  }
  auto trackedFolder = tracker->OpenFolder(Common::FromUtf8(tracked));
  auto plainFolder = Host::OpenFolder(Common::FromUtf8(plain));

  std::vector<double> withTracker, without;
  for (int r = 0; r < rounds; ++r) {
    // Whichever side runs first in a round pays for the other's writeback:
    // the order swaps each round (A B, B A, ...) so that both pay alike.
    double a, b;
    if (r % 2 == 0) {
      a = Round(*trackedFolder, r);
      b = Round(*plainFolder, r);
    } else {
      b = Round(*plainFolder, r);
      a = Round(*trackedFolder, r);
    }
    if (a < 0 || b < 0) return std::fputs("a write failed\n", stderr), 1;
    withTracker.push_back(a);
    without.push_back(b);
    std::printf("round %d: tracked %.3f s, untracked %.3f s\n", r + 1, a, b);
  }
  const double a = Median(withTracker), b = Median(without);
  std::printf("%d writes of 4 KiB, a flush every %d, %d rounds\n", kWritesPerRound,
              kWritesPerFlush, rounds);
  std::printf("median tracked %.3f s, untracked %.3f s, ratio %.3f (%+.1f%%)\n", a, b, a / b,
              (a / b - 1) * 100);
  if (argc <= 1 || !*argv[1]) std::filesystem::remove_all(root);
  return 0;
}
