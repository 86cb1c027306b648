#include "vhdx/file/writeable_file.h"

#include <cstdint>

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {
namespace {

constexpr std::size_t kZeroPiece = 4096;

}  // namespace

void WriteableFile::Write(std::uint64_t offset, std::size_t size, const void* buffer) {
  SeekTo(file_, offset, size);
  const auto* in = static_cast<const std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const std::size_t n = file_.Write(in + done, size - done);
    if (n == 0) {
      RaiseIfFailed(file_);
      // No progress and no reason given: the medium takes no more.
      throw Common::MessageError(VR_SITE, kDiskFull);
    }
    done += n;
  }
  RaiseIfFailed(file_);
}

void WriteableFile::WriteZero(std::uint64_t offset, std::uint64_t size) {
  WriteZeroes(offset, size);
}

void WriteableFile::WriteZeroes(std::uint64_t offset, std::uint64_t size) {
  if (size == 0) return;
  static constexpr std::uint8_t kZeros[kZeroPiece] = {};
  const std::uint64_t pieces = size / kZeroPiece;
  for (std::uint64_t i = 0; i < pieces; ++i, offset += kZeroPiece) Write(offset, kZeroPiece, kZeros);
  if (const auto rest = static_cast<std::size_t>(size % kZeroPiece)) Write(offset, rest, kZeros);
}

void WriteableFile::Expand(std::uint64_t size) {
  file_.Truncate(size);
  RaiseIfFailed(file_);
}

void WriteableFile::Flush() {
  file_.Flush();
  RaiseIfFailed(file_);
}

}  // namespace Vhdx
