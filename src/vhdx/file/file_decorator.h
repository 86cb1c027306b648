// Vhdx::FileDecorator: a Vhdx::File that forwards every operation to
// another; decorators derive from it and replace what they change.
// Module-internal.
#pragma once

#include "vhdx/file/file.h"

namespace Vhdx {

class FileDecorator : public File {
 public:
  // The decorated file must outlive the decorator.
  explicit FileDecorator(File& file) : file_(file) {}

  void Read(std::uint64_t offset, std::size_t size, void* buffer) override {
    file_.Read(offset, size, buffer);
  }
  std::uint64_t GetSize() override { return file_.GetSize(); }
  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override {
    file_.Write(offset, size, buffer);
  }
  void WriteZero(std::uint64_t offset, std::uint64_t size) override { file_.WriteZero(offset, size); }
  void Expand(std::uint64_t size) override { file_.Expand(size); }
  void Flush() override { file_.Flush(); }

 protected:
  File& Decorated() { return file_; }

 private:
  File& file_;
};

}  // namespace Vhdx
