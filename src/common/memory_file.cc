#include "common/memory_file.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/file_errors.h"
#include "common/site.h"

namespace Common {
namespace {

constexpr std::int64_t kLimit = 0x40000000;

class MemoryFileImpl final : public MemoryFile {
 public:
  const char* GetData() const override { return store_.empty() ? nullptr : store_.data(); }

  std::size_t Read(void* buffer, std::size_t size) override {
    const auto length = static_cast<std::int64_t>(store_.size());
    if (Failed() || size == 0 || position_ < 0 || position_ >= length) return 0;
    const auto n = static_cast<std::size_t>(std::min<std::int64_t>(
        static_cast<std::int64_t>(std::min<std::size_t>(size, kLimit)), length - position_));
    std::memcpy(buffer, store_.data() + position_, n);
    position_ += static_cast<std::int64_t>(n);
    return n;
  }

  std::size_t Write(const void* buffer, std::size_t size) override {
    if (Failed() || size == 0 || position_ > kLimit - 1 || position_ < 0) return 0;
    const auto n = static_cast<std::size_t>(
        std::min<std::int64_t>(static_cast<std::int64_t>(std::min<std::size_t>(size, kLimit)),
                               kLimit - position_));
    try {
      const auto end = static_cast<std::size_t>(position_) + n;
      if (end > store_.size()) store_.resize(end, '\0');  // a gap reads as zeros
    } catch (const std::bad_alloc&) {
      Fail(FileErrorOf(VR_SITE, FileError::NoMemory));
      return 0;
    }
    std::memcpy(store_.data() + position_, buffer, n);
    position_ += static_cast<std::int64_t>(n);
    return n;
  }

  void Truncate(std::uint64_t size) override {
    if (Failed() || size == store_.size()) return;
    if (size > static_cast<std::uint64_t>(kLimit)) {
      Fail(FileErrorOf(VR_SITE, FileError::Write));
      return;
    }
    try {
      store_.resize(static_cast<std::size_t>(size), '\0');
    } catch (const std::bad_alloc&) {
      Fail(FileErrorOf(VR_SITE, FileError::NoMemory));
    }
  }

  // No range checks: a negative position is possible and reads as the end.
  std::int64_t Seek(std::int64_t position) override { return position_ = position; }
  std::int64_t SeekCurrent(std::int64_t delta) override { return position_ += delta; }
  std::int64_t SeekEnd(std::int64_t delta) override {
    return position_ = static_cast<std::int64_t>(store_.size()) + delta;
  }
  std::uint64_t Size() override { return store_.size(); }

 private:
  std::string store_;
  std::int64_t position_ = 0;
};

}  // namespace

std::unique_ptr<MemoryFile> MemoryFile::Create() { return std::make_unique<MemoryFileImpl>(); }

}  // namespace Common
