// Vhdx::FileModificationObserver: connects a ChangeTrackingFile to one
// operation of a DataModificationsObserver (OnFileModified for the
// structure file, OnDataModified for the payload file). Module-internal;
// made when the writable file assembly is wired up.
#pragma once

#include "vhdx/file/data_modifications_observer.h"
#include "vhdx/file/observer.h"

namespace Vhdx {

class FileModificationObserver : public Observer {
 public:
  using Operation = void (DataModificationsObserver::*)();

  // The target must outlive this observer.
  FileModificationObserver(DataModificationsObserver& target, Operation operation)
      : target_(target), operation_(operation) {}

  void Notify() override { (target_.*operation_)(); }

 private:
  DataModificationsObserver& target_;
  Operation operation_;
};

}  // namespace Vhdx
