// VirtualDisks::DiskedFile and CachedFile: the file layer that the disk
// facade offers to a disk engine that works sector by sector. DiskedFile is
// a positional file whose first failure sticks until it is taken;
// CachedFile gathers neighbouring 512-byte sectors into one transfer.
// Module-internal: made by OpenOnceCachedFile (once_cached_file.h) and held
// by VirtualDiskImpl when its engine asks for it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vellumrig/error.h"

namespace VirtualDisks {

class DiskedFile {
 public:
  virtual ~DiskedFile() = default;
  // Without `error` the whole size is read (or written), or a failure is
  // stored; with it, a short count stands and the stored error is also
  // handed out there. Each returns the bytes moved.
  virtual std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size, Common::Error* error) = 0;
  virtual std::size_t Write(std::uint64_t offset, const void* buffer, std::size_t size,
                            Common::Error* error) = 0;
  virtual void Truncate(std::uint64_t size) = 0;
  virtual void Zero(std::uint64_t offset, std::uint64_t size) = 0;
  virtual bool CanWrite() const = 0;
  virtual bool IsOk() const = 0;
  virtual bool HasError() const = 0;
  // The stored error, leaving none: operations work again after it.
  virtual Common::Error TakeError() = 0;
  virtual void Commit() = 0;
};

// A run is read into (or written from) the caller's buffer in place, so a
// sector continues a run only when it follows it both in the file and in
// memory. Reads and writes share one run: a caller flushes one direction
// before it uses the other.
class CachedFile {
 public:
  static constexpr std::uint32_t kSectorSize = 512;
  static constexpr std::uint32_t kLongestRun = 100 * kSectorSize;

  virtual ~CachedFile() = default;
  virtual void ReadSector(std::uint64_t offset, void* buffer) = 0;
  virtual void FlushReads() = 0;
  virtual void WriteSector(std::uint64_t offset, const void* buffer) = 0;
  virtual void FlushWrites() = 0;
};

class DiskedCachedFile : public DiskedFile, public CachedFile {};

}  // namespace VirtualDisks
