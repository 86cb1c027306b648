// Vhdx::NonPersistentFileWrapper: a Vhdx::File that owns a read-only file
// and an in-memory overlay of it, so that a read-only open can replay a log
// and read the result while the file itself stays untouched.
// Module-internal; made by the read-only open of a disk file.
#pragma once

#include <memory>

#include "vhdx/file/file_decorator.h"
#include "vhdx/log/non_persistent_file.h"

namespace Vhdx {

// Holds the wrapped file and the overlay; a base of its own so that both
// exist before the decorator that refers to the overlay is built.
class NonPersistentFileHolder {
 protected:
  explicit NonPersistentFileHolder(std::unique_ptr<File> file)
      : file_(std::move(file)), overlay_(*file_) {}

  std::unique_ptr<File> file_;
  NonPersistentFile overlay_;
};

class NonPersistentFileWrapper : private NonPersistentFileHolder, public FileDecorator {
 public:
  explicit NonPersistentFileWrapper(std::unique_ptr<File> file)
      : NonPersistentFileHolder(std::move(file)), FileDecorator(overlay_) {}
};

}  // namespace Vhdx
