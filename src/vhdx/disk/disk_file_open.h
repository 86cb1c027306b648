// Opening one container file as a DiskFile: the read-only path, which plays
// an unfinished log into memory and leaves the file as it is, and the
// writable path, which plays it into the file. Module-internal; the disk
// hierarchy opens each file of a chain through FileHoldingDiskFile.
#pragma once

#include <memory>

#include "vellumrig/file.h"
#include "vhdx/disk/disk_file.h"
#include "vhdx/metadata/metadata_consumer.h"

namespace Vhdx {

// The file object must outlive the result. `consumer` sees the metadata
// items it accepts during the open.
std::unique_ptr<DiskFile> OpenReadOnlyDiskFile(ri_file& file, SelectiveMetadataConsumer& consumer);
std::unique_ptr<DiskFile> OpenWritableDiskFile(rio_file& file, SelectiveMetadataConsumer& consumer);

namespace Detail {
// Holds the host's file object; a base of its own so that the file is made
// before the disk file over it and closed after it.
class HostFileHolder {
 protected:
  explicit HostFileHolder(std::unique_ptr<i_file> file) : file_(std::move(file)) {}
  std::unique_ptr<i_file> file_;
};
}  // namespace Detail

// A disk file that owns the host's file object it runs on, so that the
// file closes when the disk file goes.
class FileHoldingDiskFile : private Detail::HostFileHolder, public DiskFileDelegate {
 public:
  // Read-only: `file` must be an ri_file. Writable: an rio_file. Anything
  // else is refused as a read-only file.
  FileHoldingDiskFile(std::unique_ptr<i_file> file, bool writable, SelectiveMetadataConsumer& consumer);

 protected:
  i_file& HostFile() const { return *file_; }

 private:
  static std::unique_ptr<DiskFile> Open(i_file& file, bool writable, SelectiveMetadataConsumer& consumer);
};

}  // namespace Vhdx
