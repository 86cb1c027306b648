// Vhdx::FileAssembly: which Vhdx::File each kind of access of an open disk
// file goes through. Structure writes (BAT, sector bitmaps, metadata, log
// replay) and payload writes are told apart so that the first of each
// renews its write GUID in the header before it reaches the file.
// Module-internal; made by the two open paths of a disk file.
#pragma once

#include <memory>

#include "vhdx/file/change_tracking_file.h"
#include "vhdx/file/file.h"
#include "vhdx/format/write_field_modifier.h"
#include "vhdx/file/write_protected_file.h"

namespace Vhdx {

class FileAssembly {
 public:
  FileAssembly() = default;
  FileAssembly(const FileAssembly&) = delete;
  FileAssembly& operator=(const FileAssembly&) = delete;
  virtual ~FileAssembly() = default;

  virtual File& GetStructureFile() = 0;
  virtual File& GetDataFile() = 0;
  virtual File& GetReadFile() = 0;
};

// Every access goes through one write protection, so a read-only open
// refuses each write-type call without a test of its own.
class ReadOnlyFileAssembly : public FileAssembly {
 public:
  explicit ReadOnlyFileAssembly(std::unique_ptr<File> file)
      : file_(std::move(file)), protected_(*file_) {}

  File& GetStructureFile() override { return protected_; }
  File& GetDataFile() override { return protected_; }
  File& GetReadFile() override { return protected_; }

 private:
  std::unique_ptr<File> file_;
  WriteProtectedFile protected_;
};

class WritableFileAssembly : public FileAssembly {
 public:
  explicit WritableFileAssembly(std::unique_ptr<File> file);

  File& GetStructureFile() override { return structure_; }
  File& GetDataFile() override { return data_; }
  // Reads give no notice, so they may take the raw file.
  File& GetReadFile() override { return *file_; }

 private:
  std::unique_ptr<File> file_;
  // Writes its header changes to the raw file, so they give no notice.
  WriteFieldModifier modifier_;
  ChangeTrackingFile structure_;
  ChangeTrackingFile data_;
};

}  // namespace Vhdx
