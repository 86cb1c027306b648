#include "virtual_disks/once_cached_file.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "common/assert.h"
#include "common/file_errors.h"
#include "common/site.h"

namespace VirtualDisks {
namespace {

constexpr std::size_t kZeroPiece = 0x10000;

const char* Zeros() {
  static const std::vector<char> zeros(kZeroPiece, '\0');
  return zeros.data();
}

}  // namespace

void DiskedFileImpl::Zero(std::uint64_t offset, std::uint64_t size) {
  if (!IsOk() || size == 0) return;
  const char* zeros = Zeros();
  for (std::uint64_t done = 0; done < size && IsOk();) {
    const std::size_t piece = static_cast<std::size_t>(std::min<std::uint64_t>(size - done, kZeroPiece));
    Write(offset + done, zeros, piece, nullptr);
    done += piece;
  }
}

void CachedFileImpl::Add(std::uint64_t offset, const char* buffer, const char*& runBuffer,
                         void (CachedFileImpl::*flush)()) {
  if (pending == kLongestRun) (this->*flush)();
  if (pending != 0) {
    const bool continues = offset - start == pending &&
                           reinterpret_cast<std::uintptr_t>(buffer) -
                                   reinterpret_cast<std::uintptr_t>(runBuffer) == pending;
    if (continues) {
      pending += kSectorSize;
      return;
    }
    (this->*flush)();
  }
  // A flush that failed keeps its run: the sector is not taken, and the
  // stored error tells the caller.
  if (pending == 0) {
    start = offset;
    runBuffer = buffer;
    pending += kSectorSize;
  }
}

void CachedFileImpl::ReadSector(std::uint64_t offset, void* buffer) {
  Add(offset, static_cast<const char*>(buffer), readBuffer, &CachedFileImpl::FlushReads);
}

void CachedFileImpl::WriteSector(std::uint64_t offset, const void* buffer) {
  Add(offset, static_cast<const char*>(buffer), writeBuffer, &CachedFileImpl::FlushWrites);
}

void CachedFileImpl::FlushReads() {
  if (pending == 0 || !IsOk()) return;
  Read(start, const_cast<char*>(readBuffer), pending, nullptr);
  pending = 0;
}

void CachedFileImpl::FlushWrites() {
  if (pending == 0 || !IsOk()) return;
  Write(start, writeBuffer, pending, nullptr);
  pending = 0;
}

OnceCachedFileImpl::OnceCachedFileImpl(std::unique_ptr<i_file> file, bool writable)
    : owner_(std::move(file)) {
  ifile = dynamic_cast<ri_file*>(owner_.get());
  if (!ifile) Common::Assert("ifile!=0", __FILE__, __LINE__);
  if (writable) iofile = dynamic_cast<rio_file*>(owner_.get());
}

void OnceCachedFileImpl::TakeFileError() {
  if (!owner_->Status.IsEmpty()) Store(owner_->TakeError());
}

void OnceCachedFileImpl::RefuseWrite(Common::Error* error) {
  Store(Common::FileErrorOf(VR_SITE, FileError::Write));
  if (error) *error = StoredError();
}

std::size_t OnceCachedFileImpl::Read(std::uint64_t offset, void* buffer, std::size_t size, Common::Error* error) {
  if (error) *error = Common::Error();
  std::size_t read = 0;
  if (IsOk() && ifile) {
    ifile->Seek(static_cast<std::int64_t>(offset));
    read = error ? ifile->Read(buffer, size) : Common::ReadExact(*ifile, buffer, size);
    TakeFileError();
  }
  if (error) *error = StoredError();
  return read;
}

std::size_t OnceCachedFileImpl::Write(std::uint64_t offset, const void* buffer, std::size_t size,
                                      Common::Error* error) {
  if (error) *error = Common::Error();
  if (!IsOk()) {
    if (error) *error = StoredError();
    return 0;
  }
  if (!iofile) {
    RefuseWrite(error);
    return 0;
  }
  iofile->Seek(static_cast<std::int64_t>(offset));
  const std::size_t written = iofile->Write(buffer, size);
  TakeFileError();
  // A short write with no error of the file's own would otherwise lose the
  // rest without a word.
  if (written < size && !error) Store(Common::FileErrorOf(VR_SITE, FileError::Write));
  if (error) *error = StoredError();
  return written;
}

void OnceCachedFileImpl::Truncate(std::uint64_t size) {
  if (!IsOk()) return;
  if (!iofile) {
    RefuseWrite(nullptr);
    return;
  }
  iofile->Truncate(size);
  TakeFileError();
}

void OnceCachedFileImpl::Commit() {
  if (!IsOk()) return;
  if (iofile) iofile->Flush();
  TakeFileError();
}

std::unique_ptr<DiskedCachedFile> OpenOnceCachedFile(rio_dir* idir, rio_dir* iodir, const std::u16string& name) {
  if (!idir) {
    Common::Assert("idir!=0", __FILE__, __LINE__);
    return nullptr;
  }
  if (iodir) {
    std::unique_ptr<i_file> file = iodir->OpenFile(name, kOpenReadWrite);
    if (file && dynamic_cast<rio_file*>(file.get()))
      return std::make_unique<OnceCachedFileImpl>(std::move(file), true);
    // The read-only open below answers for the file; this failure is no
    // longer the caller's concern.
    iodir->TakeError();
  }
  std::unique_ptr<i_file> file = idir->OpenFile(name, kOpenRead);
  if (!file || !dynamic_cast<ri_file*>(file.get())) return nullptr;
  return std::make_unique<OnceCachedFileImpl>(std::move(file), false);
}

}  // namespace VirtualDisks
