#include "vhdx/file/read_only_file.h"

#include <cstdint>

#include "common/file_errors.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void ReadOnlyFile::RaiseIfFailed(const file_object& file) {
  if (file.Failed()) throw file.Status;
}

void ReadOnlyFile::SeekTo(raccess_file& file, std::uint64_t offset, std::uint64_t size) {
  // File objects take signed positions: a place they cannot name is refused
  // here rather than turned into a negative position.
  if (offset > static_cast<std::uint64_t>(INT64_MAX) ||
      size > static_cast<std::uint64_t>(INT64_MAX) - offset)
    throw Common::FileErrorOf(VR_SITE, FileError::Seek);
  file.Seek(static_cast<std::int64_t>(offset));
  RaiseIfFailed(file);
}

void ReadOnlyFile::Read(std::uint64_t offset, std::size_t size, void* buffer) {
  SeekTo(file_, offset, size);
  auto* out = static_cast<std::uint8_t*>(buffer);
  std::size_t done = 0;
  while (done < size) {
    const std::size_t n = file_.Read(out + done, size - done);
    if (n == 0) {
      RaiseIfFailed(file_);
      throw Common::MessageError(VR_SITE, kEndOfFile);
    }
    done += n;
  }
  RaiseIfFailed(file_);
}

std::uint64_t ReadOnlyFile::GetSize() {
  const std::uint64_t size = file_.Size();
  RaiseIfFailed(file_);
  return size;
}

void ReadOnlyFile::Write(std::uint64_t, std::size_t, const void*) {
  throw Common::MessageError(VR_SITE, kReadOnly);
}

void ReadOnlyFile::WriteZero(std::uint64_t, std::uint64_t) {
  throw Common::MessageError(VR_SITE, kReadOnly);
}

void ReadOnlyFile::Expand(std::uint64_t) { throw Common::MessageError(VR_SITE, kReadOnly); }

void ReadOnlyFile::Flush() { throw Common::MessageError(VR_SITE, kReadOnly); }

}  // namespace Vhdx
