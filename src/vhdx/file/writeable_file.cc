#include "vhdx/file/writeable_file.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {
namespace {

// Large enough that a long run costs few calls, small enough to allocate.
constexpr std::uint64_t kZeroPiece = std::uint64_t{1} << 20;

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
  const std::vector<std::uint8_t> zeros(std::min(size, kZeroPiece));
  for (std::uint64_t done = 0; done < size;) {
    const std::size_t n = std::min<std::uint64_t>(size - done, zeros.size());
    Write(offset + done, n, zeros.data());
    done += n;
  }
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
