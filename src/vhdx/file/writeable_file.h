// Vhdx::WriteableFile: a Vhdx::File over a host's rio_file, every operation
// going to the file object. Module-internal; made by the writable open path
// and by container creation.
#pragma once

#include "vellumrig/file.h"
#include "vhdx/file/read_only_file.h"

namespace Vhdx {

class WriteableFile : public ReadOnlyFile {
 public:
  // The file object must outlive this one.
  explicit WriteableFile(rio_file& file) : ReadOnlyFile(file), file_(file) {}

  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override;
  void WriteZero(std::uint64_t offset, std::uint64_t size) override;
  void Expand(std::uint64_t size) override;
  void Flush() override;

 protected:
  // The zeroing itself: plain writes from a zero buffer. A file object that
  // could zero more cheaply (by punching a hole, say) is served by replacing
  // only this.
  virtual void WriteZeroes(std::uint64_t offset, std::uint64_t size);

 private:
  rio_file& file_;
};

}  // namespace Vhdx
