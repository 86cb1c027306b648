// Vhdx::File: the container engine's view of a container file, with
// absolute offsets and failures thrown as Common::Error. Module-internal;
// every part of the engine reads and writes the container through it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Vhdx {

class File {
 public:
  File() = default;
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  virtual ~File() = default;

  // All `size` bytes at `offset`, or a thrown failure.
  virtual void Read(std::uint64_t offset, std::size_t size, void* buffer) = 0;
  virtual std::uint64_t GetSize() = 0;
  virtual void Write(std::uint64_t offset, std::size_t size, const void* buffer) = 0;
  virtual void WriteZero(std::uint64_t offset, std::uint64_t size) = 0;
  // Sets the size of the file (despite the name, also to a smaller one).
  virtual void Expand(std::uint64_t size) = 0;
  virtual void Flush() = 0;
};

}  // namespace Vhdx
