// Vhdx::WriteFieldModifier: renews the header's FileWriteGuid on the first
// change of an open container and its DataWriteGuid on the first payload
// change, each at most once per open, before the change reaches the file.
// Module-internal; the writable file assembly makes one per open and feeds
// it from two ChangeTrackingFiles through FileModificationObservers.
#pragma once

#include <memory>

#include "vhdx/file/data_modifications_observer.h"
#include "vhdx/file/file.h"

namespace Vhdx {

class WriteFieldModifier : public DataModificationsObserver {
 public:
  // What has been renewed so far; each state knows its successor.
  class State {
   public:
    virtual ~State() = default;
    // Each renews what it must in the header of `file` and gives the state
    // that follows, or null to stay.
    virtual std::unique_ptr<State> OnFileModified(File& file) = 0;
    virtual std::unique_ptr<State> OnDataModified(File& file) = 0;
  };

  // `file` is the raw file, not a tracking one, so that the modifier's own
  // header writes give no notice. It must outlive the modifier.
  explicit WriteFieldModifier(File& file);
  ~WriteFieldModifier() override;

  void OnFileModified() override;
  void OnDataModified() override;

 private:
  File& file_;
  std::unique_ptr<State> state_;
};

}  // namespace Vhdx
