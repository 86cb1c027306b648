#include "vhdx/disk/file_assembly.h"

#include "vhdx/file/file_modification_observer.h"

namespace Vhdx {

WritableFileAssembly::WritableFileAssembly(std::unique_ptr<File> file)
    : file_(std::move(file)), modifier_(*file_), structure_(*file_), data_(*file_) {
  structure_.Add(std::make_shared<FileModificationObserver>(modifier_, &DataModificationsObserver::OnFileModified));
  data_.Add(std::make_shared<FileModificationObserver>(modifier_, &DataModificationsObserver::OnDataModified));
}

}  // namespace Vhdx
