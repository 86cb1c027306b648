// Vhdx::ReadOnlyFile: a Vhdx::File over a host's ri_file; every change is
// refused with 0x4000C "The file is read-only.". Module-internal; made by
// the read-only open path, and the base of WriteableFile.
#pragma once

#include "vellumrig/file.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class ReadOnlyFile : public File {
 public:
  // The file object must outlive this one.
  explicit ReadOnlyFile(ri_file& file) : file_(file) {}

  void Read(std::uint64_t offset, std::size_t size, void* buffer) override;
  std::uint64_t GetSize() override;
  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override;
  void WriteZero(std::uint64_t offset, std::uint64_t size) override;
  void Expand(std::uint64_t size) override;
  void Flush() override;

 protected:
  // Throws the failure the file object holds, if any.
  static void RaiseIfFailed(const file_object& file);
  // Moves the file object to `offset` for a transfer of `size` bytes.
  static void SeekTo(raccess_file& file, std::uint64_t offset, std::uint64_t size);

 private:
  ri_file& file_;
};

}  // namespace Vhdx
