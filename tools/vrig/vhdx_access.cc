// Helpers of the vrig vhdx commands (paths, numbers, zeros, progress); for tools/vrig only.
#include "vhdx_access.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "cli.h"
#include "track_commands.h"
#include "vellumrig/host.h"

namespace vrig {

Place PlaceOf(const std::string& path, bool readOnly) {
  const std::u16string full = Absolute(path);
  const std::size_t slash = full.rfind(u'/');
  const std::u16string folder = slash == 0 ? u"/" : full.substr(0, slash);
  return {Host::OpenFolder(folder, readOnly), full.substr(slash + 1)};
}

Place PlaceOf(const std::string& path, bool readOnly, Host::TrackingHost* tracker) {
  if (!tracker || readOnly) return PlaceOf(path, readOnly);
  const std::u16string full = Absolute(path);
  const std::size_t slash = full.rfind(u'/');
  std::unique_ptr<rio_dir> folder = tracker->OpenFolder(full.substr(0, slash + 1));
  if (!folder) throw std::runtime_error("the current folder cannot be found");
  return {std::move(folder), full.substr(slash + 1)};
}

std::uint32_t SectorSizeOption(std::vector<std::string>& args) {
  std::uint32_t size = 512;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--sector-size") continue;
    if (i + 1 == args.size()) throw UsageError{"--sector-size needs 512 or 4096"};
    if (args[i + 1] == "512") size = 512;
    else if (args[i + 1] == "4096") size = 4096;
    else throw UsageError{"--sector-size must be 512 or 4096, not " + args[i + 1]};
    args.erase(args.begin() + static_cast<std::ptrdiff_t>(i), args.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    --i;
  }
  return size;
}

void Track(Host::TrackingHost* tracker, const std::string& path) {
  if (tracker) Check(tracker->Track(Absolute(path)));
}

bool TakeOption(std::vector<std::string>& args, const std::string& flag, std::string& value) {
  const auto at = std::find(args.begin(), args.end(), flag);
  if (at == args.end()) return false;
  if (at + 1 == args.end()) throw UsageError{flag + " needs a value"};
  value = *(at + 1);
  args.erase(at, at + 2);
  if (std::find(args.begin(), args.end(), flag) != args.end()) throw UsageError{flag + " is given twice"};
  return true;
}

std::unique_ptr<Host::TrackingHost> TrackerOption(std::vector<std::string>& args) {
  std::string database;
  if (!TakeOption(args, "--tracker", database)) return nullptr;
  // Opening makes a missing database, and a new tracker watches nothing:
  // writes through it would go unrecorded and a later backup would miss
  // them. A mistyped path must fail instead.
  if (!PathExists(database))
    throw std::runtime_error("'" + database + "' is no tracker database; vrig track start makes one");
  return OpenTracker(database);
}

bool PathExists(const std::string& path) {
  struct stat st;
  return ::lstat(path.c_str(), &st) == 0;
}

PartialFile::PartialFile(std::string target)
    : target_(std::move(target)), partial_(target_ + ".vrig-partial-" + std::to_string(::getpid())) {}

PartialFile::~PartialFile() {
  if (!published_) ::unlink(partial_.c_str());
}

void PartialFile::Publish() {
  if (::renameat2(AT_FDCWD, partial_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE) != 0) {
    const int error = errno;
    throw std::runtime_error("cannot give '" + partial_ + "' its name '" + target_ + "': " + std::strerror(error));
  }
  published_ = true;
}

std::uint64_t ParseNumber(const std::string& text, const std::string& what) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; }))
    throw UsageError{"not a number for " + what + ": '" + text + "'"};
  std::uint64_t value = 0;
  for (char c : text) {
    const auto digit = static_cast<std::uint64_t>(c - '0');
    if (value > (UINT64_MAX - digit) / 10)
      throw UsageError{what + " is out of range: '" + text + "' is more than " + std::to_string(UINT64_MAX)};
    value = value * 10 + digit;
  }
  return value;
}

std::uint32_t ParseNumber32(const std::string& text, const std::string& what) {
  const std::uint64_t value = ParseNumber(text, what);
  if (value > UINT32_MAX) throw UsageError{what + " is out of range: " + text + " is more than " + std::to_string(UINT32_MAX)};
  return static_cast<std::uint32_t>(value);
}

std::uint64_t ParseSize(const std::string& text) {
  std::string digits = text;
  unsigned shift = 0;
  if (!digits.empty()) {
    switch (std::toupper(static_cast<unsigned char>(digits.back()))) {
      case 'K': shift = 10; break;
      case 'M': shift = 20; break;
      case 'G': shift = 30; break;
      case 'T': shift = 40; break;
      default: break;
    }
    if (shift) digits.pop_back();
  }
  const std::uint64_t value = ParseNumber(digits, "the size");
  if (shift && value > (UINT64_MAX >> shift)) throw UsageError{"the size is out of range: " + text};
  return value << shift;
}

bool IsZero(const std::uint8_t* data, std::size_t size) {
  std::size_t i = 0;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, data + i, 8);
    if (word) return false;
  }
  for (; i < size; ++i)
    if (data[i]) return false;
  return true;
}

Progress::Progress(std::uint64_t total)
    : total_(total), terminal_(::isatty(STDERR_FILENO) == 1), start_(std::chrono::steady_clock::now()),
      shown_(start_) {}

void Progress::Advance(std::uint64_t done) {
  if (!terminal_) return;
  const auto now = std::chrono::steady_clock::now();
  if (done < total_ && now - shown_ < std::chrono::milliseconds(100)) return;
  shown_ = now;
  constexpr int kWidth = 40;
  const int filled = total_ ? static_cast<int>(done * kWidth / total_) : kWidth;
  const unsigned percent = total_ ? static_cast<unsigned>(done * 100 / total_) : 100;
  std::fprintf(stderr, "\r[%-*s] %3u%%", kWidth, std::string(static_cast<std::size_t>(filled), '#').c_str(),
               percent);
  std::fflush(stderr);
}

void Progress::Finish() {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  if (terminal_) std::fputs("\r\033[K", stderr);
  const double rate = seconds > 0 ? static_cast<double>(total_) / seconds : 0;
  std::fprintf(stderr, "%llu bytes in %.3f s (%.0f bytes/s)\n", static_cast<unsigned long long>(total_),
               seconds, rate);
}

}  // namespace vrig
