// VirtualDisks::OnceCachedFileImpl: a host file opened once, for reading
// and writing where the folder allows it and for reading otherwise, behind
// the DiskedFile and CachedFile operations (disked_file.h). Module-internal;
// VirtualDiskImpl opens one when its engine asks for it.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "vellumrig/file.h"
#include "vellumrig/folder.h"
#include "virtual_disks/disked_file.h"

namespace VirtualDisks {

// Holds the stored error; every operation on the file first looks at it
// and does nothing while it is there.
class DiskedFileImpl : public virtual DiskedCachedFile {
 public:
  void Zero(std::uint64_t offset, std::uint64_t size) override;
  bool IsOk() const override { return error_.IsEmpty(); }
  bool HasError() const override { return !error_.IsEmpty(); }
  Common::Error TakeError() override { return std::exchange(error_, Common::Error()); }

 protected:
  const Common::Error& StoredError() const { return error_; }
  void Store(const Common::Error& error) {
    if (error_.IsEmpty()) error_ = error;
  }

 private:
  Common::Error error_;
};

// Gathers runs of sectors; the transfers go through Read and Write.
class CachedFileImpl : public virtual DiskedCachedFile {
 public:
  void ReadSector(std::uint64_t offset, void* buffer) override;
  void FlushReads() override;
  void WriteSector(std::uint64_t offset, const void* buffer) override;
  void FlushWrites() override;

 private:
  // Adds the sector to the run, which `flush` ends first when it is full
  // or the sector does not continue it.
  void Add(std::uint64_t offset, const char* buffer, const char*& runBuffer, void (CachedFileImpl::*flush)());

  std::uint32_t pending = 0;  // bytes in the run
  std::uint64_t start = 0;    // its offset in the file
  const char* readBuffer = nullptr;
  const char* writeBuffer = nullptr;
};

class OnceCachedFileImpl final : public DiskedFileImpl, public CachedFileImpl {
 public:
  // `file` must be an ri_file; writable when it is a rio_file too.
  explicit OnceCachedFileImpl(std::unique_ptr<i_file> file, bool writable);

  std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size, Common::Error* error) override;
  std::size_t Write(std::uint64_t offset, const void* buffer, std::size_t size, Common::Error* error) override;
  void Truncate(std::uint64_t size) override;
  bool CanWrite() const override { return iofile != nullptr; }
  void Commit() override;

 private:
  // Moves the file's own error into the stored one.
  void TakeFileError();
  void RefuseWrite(Common::Error* error);

  std::unique_ptr<i_file> owner_;
  ri_file* ifile = nullptr;
  rio_file* iofile = nullptr;  // null when opened for reading only
};

// Opens `name` in `iodir` for reading and writing when given; else, or when
// that fails, in `idir` for reading. Null when neither gives a file; the
// folder's error is then pending in it.
std::unique_ptr<DiskedCachedFile> OpenOnceCachedFile(rio_dir* idir, rio_dir* iodir, const std::u16string& name);

}  // namespace VirtualDisks
