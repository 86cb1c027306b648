// A host file that fails once it has taken a given number of changes
// (writes and size changes): the crash of a writer at every step of an
// operation, for the recovery tests.
#pragma once

#include <cstdint>
#include <memory>

#include "common/site.h"
#include "vellumrig/file.h"

namespace VhdxTest {

class FailingFile : public rio_file {
 public:
  // `budget` changes pass; the next one and all later fail. Counts either way.
  FailingFile(std::unique_ptr<rio_file> inner, std::uint64_t budget) : inner_(std::move(inner)), budget_(budget) {}

  std::uint64_t Changes() const { return changes_; }

  std::size_t Read(void* buffer, std::size_t size) override { return inner_->Read(buffer, size); }
  std::size_t Write(const void* buffer, std::size_t size) override {
    if (!Allow()) return 0;
    return inner_->Write(buffer, size);
  }
  void Truncate(std::uint64_t size) override {
    if (Allow()) inner_->Truncate(size);
  }
  void Flush() override { inner_->Flush(); }
  std::int64_t Seek(std::int64_t position) override { return inner_->Seek(position); }
  std::int64_t SeekCurrent(std::int64_t delta) override { return inner_->SeekCurrent(delta); }
  std::int64_t SeekEnd(std::int64_t delta) override { return inner_->SeekEnd(delta); }

 private:
  bool Allow() {
    if (changes_++ < budget_) return true;
    Fail(Common::Error(VR_SITE, FileError::Write));
    return false;
  }

  std::unique_ptr<rio_file> inner_;
  std::uint64_t budget_;
  std::uint64_t changes_ = 0;
};

}  // namespace VhdxTest
