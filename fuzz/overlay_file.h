// OverlayFile: an in-memory rio_file over a shared, unchanging image, which
// keeps only the 4 KiB pages written to it. The fuzz harnesses open many
// variants of the same few containers a second; copying megabytes for each
// one is what made them slow. Only the harnesses in fuzz/ use it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <string>

#include "common/file_errors.h"
#include "common/site.h"
#include "vellumrig/file.h"

namespace Fuzz {

class OverlayFile final : public rio_file {
 public:
  static constexpr std::uint64_t kPage = 4096;
  // Far above any container the harnesses build, and a bound on what a
  // fuzzed offset can make this file pretend to hold.
  static constexpr std::uint64_t kLimit = std::uint64_t{1} << 36;

  // `base` must outlive this file and every copy of it.
  explicit OverlayFile(const std::string& base) : base_(&base), baseEnd_(base.size()), size_(base.size()) {}

  std::unique_ptr<OverlayFile> Copy() const {
    auto copy = std::make_unique<OverlayFile>(*base_);
    copy->baseEnd_ = baseEnd_;
    copy->size_ = size_;
    for (const auto& [page, bytes] : pages_) copy->pages_.emplace(page, std::make_unique<Page>(*bytes));
    return copy;
  }

  void Get(std::uint64_t offset, void* buffer, std::uint64_t size) const {
    auto* out = static_cast<char*>(buffer);
    while (size) {
      const std::uint64_t page = offset / kPage;
      const std::uint64_t in = offset % kPage;
      const std::uint64_t n = std::min(size, kPage - in);
      if (const auto found = pages_.find(page); found != pages_.end()) {
        std::memcpy(out, found->second->data() + in, n);
      } else {
        const std::uint64_t fromBase = offset < baseEnd_ ? std::min(n, baseEnd_ - offset) : 0;
        if (fromBase) std::memcpy(out, base_->data() + offset, fromBase);
        std::memset(out + fromBase, 0, n - fromBase);
      }
      out += n;
      offset += n;
      size -= n;
    }
  }

  void Put(std::uint64_t offset, const void* buffer, std::uint64_t size) {
    const auto* in = static_cast<const char*>(buffer);
    size_ = std::max(size_, offset + size);
    // A run of zeros past the image, as below but in one step per page
    // that holds bytes rather than one per page it spans.
    if (size != 0 && offset / kPage * kPage >= baseEnd_ && in[0] == 0 && std::memcmp(in, in + 1, size - 1) == 0) {
      const std::uint64_t end = offset + size;
      for (auto it = pages_.lower_bound(offset / kPage); it != pages_.end() && it->first * kPage < end;) {
        const std::uint64_t at = it->first * kPage;
        const std::uint64_t from = std::max(offset, at);
        std::memset(it->second->data() + (from - at), 0, std::min(end, at + kPage) - from);
        it = IsZero(*it->second) ? pages_.erase(it) : std::next(it);
      }
      return;
    }
    while (size) {
      const std::uint64_t n = std::min(size, kPage - offset % kPage);
      const std::uint64_t page = offset / kPage;
      // A page of zeros past the image reads as zeros without a page: a log
      // may zero gigabytes, at offsets that need not be page aligned, which
      // must not cost gigabytes here.
      if (page * kPage >= baseEnd_ && std::memcmp(in, kZeroPage, n) == 0) {
        if (const auto found = pages_.find(page); found != pages_.end()) {
          std::memset(found->second->data() + offset % kPage, 0, n);
          if (IsZero(*found->second)) pages_.erase(found);
        }
      } else {
        std::memcpy(PageOf(page).data() + offset % kPage, in, n);
      }
      in += n;
      offset += n;
      size -= n;
    }
  }

  // Whether a byte of [offset, offset + size) may differ from the image.
  bool Touched(std::uint64_t offset, std::uint64_t size) const {
    if (offset + size > baseEnd_) return true;
    const auto page = pages_.lower_bound(offset / kPage);
    return page != pages_.end() && page->first * kPage < offset + size;
  }

  // Whether both hold the same bytes. Only the pages either has written can
  // differ, so this costs what was written, not the size of the file.
  bool SameBytes(const OverlayFile& other) const {
    if (size_ != other.size_ || base_ != other.base_) return false;
    char mine[kPage];
    char theirs[kPage];
    for (const auto* file : {this, &other}) {
      for (const auto& [page, bytes] : file->pages_) {
        const std::uint64_t at = page * kPage;
        if (at >= size_) continue;
        const std::uint64_t n = std::min(kPage, size_ - at);
        Get(at, mine, n);
        other.Get(at, theirs, n);
        if (std::memcmp(mine, theirs, n) != 0) return false;
      }
    }
    // Bytes of the image cut off by a truncation read as zeros in one file
    // and as the image in the other.
    const std::uint64_t cut = std::min(baseEnd_, other.baseEnd_);
    const std::uint64_t end = std::min(std::max(baseEnd_, other.baseEnd_), size_);
    for (std::uint64_t at = cut; at < end; at += kPage) {
      const std::uint64_t n = std::min(kPage, end - at);
      Get(at, mine, n);
      other.Get(at, theirs, n);
      if (std::memcmp(mine, theirs, n) != 0) return false;
    }
    return true;
  }

  std::size_t Read(void* buffer, std::size_t size) override {
    if (Failed() || position_ < 0 || static_cast<std::uint64_t>(position_) >= size_) return 0;
    const std::uint64_t n = std::min<std::uint64_t>(size, size_ - position_);
    Get(position_, buffer, n);
    position_ += static_cast<std::int64_t>(n);
    return n;
  }

  std::size_t Write(const void* buffer, std::size_t size) override {
    if (Failed() || size == 0) return 0;
    if (position_ < 0 || static_cast<std::uint64_t>(position_) >= kLimit) {
      Fail(Common::FileErrorOf(VR_SITE, FileError::Write));
      return 0;
    }
    const std::uint64_t n = std::min<std::uint64_t>(size, kLimit - position_);
    Put(position_, buffer, n);
    position_ += static_cast<std::int64_t>(n);
    return n;
  }

  void Truncate(std::uint64_t size) override {
    if (Failed() || size == size_) return;
    if (size > kLimit) {
      Fail(Common::FileErrorOf(VR_SITE, FileError::Write));
      return;
    }
    if (size < size_) {
      // What lies beyond the new end must read as zeros if the file grows again.
      baseEnd_ = std::min(baseEnd_, size);
      pages_.erase(pages_.lower_bound((size + kPage - 1) / kPage), pages_.end());
      if (size % kPage) {
        if (const auto found = pages_.find(size / kPage); found != pages_.end())
          std::memset(found->second->data() + size % kPage, 0, kPage - size % kPage);
      }
    }
    size_ = size;
  }

  std::int64_t Seek(std::int64_t position) override { return position_ = position; }
  std::int64_t SeekCurrent(std::int64_t delta) override { return position_ += delta; }
  std::int64_t SeekEnd(std::int64_t delta) override { return position_ = static_cast<std::int64_t>(size_) + delta; }
  std::uint64_t Size() override { return size_; }
  std::uint64_t End() const { return size_; }
  void LockShared() override {}
  void LockExclusive() override {}
  void Unlock() override {}

 private:
  using Page = std::array<char, kPage>;
  static constexpr char kZeroPage[kPage] = {};

  static bool IsZero(const Page& page) { return std::memcmp(page.data(), kZeroPage, kPage) == 0; }

  Page& PageOf(std::uint64_t page) {
    auto& slot = pages_[page];
    if (!slot) {
      slot = std::make_unique<Page>();
      const std::uint64_t at = page * kPage;
      const std::uint64_t fromBase = at < baseEnd_ ? std::min(kPage, baseEnd_ - at) : 0;
      if (fromBase) std::memcpy(slot->data(), base_->data() + at, fromBase);
      std::memset(slot->data() + fromBase, 0, kPage - fromBase);
    }
    return *slot;
  }

  const std::string* base_;
  std::uint64_t baseEnd_;  // bytes of the image still in view; a truncation cuts them
  std::uint64_t size_;
  std::int64_t position_ = 0;
  std::map<std::uint64_t, std::unique_ptr<Page>> pages_;
};

}  // namespace Fuzz
