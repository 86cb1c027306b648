// Vhdx::DataModificationsObserver: told before a container changes, once
// per change, whether the change is to its structure (BAT, sector bitmaps,
// metadata) or to its payload. Module-internal interface.
#pragma once

namespace Vhdx {

class DataModificationsObserver {
 public:
  DataModificationsObserver() = default;
  DataModificationsObserver(const DataModificationsObserver&) = delete;
  DataModificationsObserver& operator=(const DataModificationsObserver&) = delete;
  virtual ~DataModificationsObserver() = default;

  virtual void OnFileModified() = 0;
  virtual void OnDataModified() = 0;
};

}  // namespace Vhdx
