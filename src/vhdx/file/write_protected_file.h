// Vhdx::WriteProtectedFile: lets reads through to the decorated file and
// refuses every change with 0x4000C "The file is read-only.", whatever the
// file below could do. Module-internal; the read-only file assembly puts all
// accesses through one.
#pragma once

#include "vhdx/file/file_decorator.h"

namespace Vhdx {

class WriteProtectedFile : public FileDecorator {
 public:
  using FileDecorator::FileDecorator;

  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override;
  void WriteZero(std::uint64_t offset, std::uint64_t size) override;
  void Expand(std::uint64_t size) override;
  void Flush() override;
};

}  // namespace Vhdx
