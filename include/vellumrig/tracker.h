// The file tracker: what a host hands the module so that it can tell which
// sectors of a virtual disk changed since a change ID. The tracker knows
// which byte regions of which host files changed; the module turns those
// into sectors across a whole chain of containers. Implemented by the host
// (libvellumrig_host ships one); called by the module.
//
// A change ID is an opaque narrow text that only the tracker gives meaning
// to, apart from "*", which means all data and needs no tracker. Every
// operation returns its failure; the module raises it as it came.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vellumrig/error.h"

// The changes of one host file since a change ID.
class ChangedFile {
 public:
  virtual ~ChangedFile() = default;
  // True: all of the file counts as changed, whatever the regions say.
  virtual Common::Error IsFull(bool& isFull) = 0;
  virtual Common::Error GetRegionCount(std::uint32_t& count) = 0;
  // Regions `first` to `first + count - 1`, each a pair of byte offsets
  // start and end, the end exclusive.
  virtual Common::Error GetRegions(std::uint32_t first, std::uint32_t count,
                                   std::vector<std::pair<std::uint64_t, std::uint64_t>>& regions) = 0;
};

class FileTracker {
 public:
  virtual ~FileTracker() = default;
  virtual Common::Error GetCurrentChangeID(std::string& id) = 0;
  // The changes of `fileName` (a full path, as the folder objects give it)
  // since `id`; null when the tracker has none to tell for it. The caller
  // owns the result.
  virtual Common::Error GetChangedFile(const std::string& id, const std::u16string& fileName,
                                       std::unique_ptr<ChangedFile>& changedFile) = 0;
  virtual Common::Error IsTracked(const std::u16string& fileName, bool& isTracked) = 0;
};
