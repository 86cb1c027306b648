// Common::MemoryFile: a rio_file kept in memory, at most 0x40000000 bytes.
// Module-internal and host library.
#pragma once

#include <memory>
#include <string>

#include "vellumrig/file.h"

namespace Common {

class MemoryFile : public rio_file {
 public:
  // A pointer to the bytes, null when the file is empty.
  virtual const char* GetData() const = 0;

  // An empty file.
  static std::unique_ptr<MemoryFile> Create();
};

}  // namespace Common
