// Vhd::ChangedFileMap and its kinds: which ChangedFile answers for a host
// file under one change ID. "*" takes the full map, which needs no tracker;
// any other ID asks the host's tracker, behind a check that refuses a file
// the tracker does not follow (answering "no changes" for it would under-
// report). Module-internal; the disk's change queries use them.
#pragma once

#include <memory>
#include <string>

#include "vellumrig/tracker.h"
#include "vhd/enumerator.h"
#include "vhd/interval.h"

namespace Vhd {

class ChangedFileMap {
 public:
  virtual ~ChangedFileMap() = default;
  // Null when there is nothing to tell for the file.
  virtual std::shared_ptr<ChangedFile> Get(const std::u16string& fileName) = 0;
};

// All of a file counts as changed; it has no regions.
class FullChangedFile : public ChangedFile {
 public:
  Common::Error IsFull(bool& isFull) override;
  Common::Error GetRegionCount(std::uint32_t& count) override;
  Common::Error GetRegions(std::uint32_t first, std::uint32_t count,
                           std::vector<std::pair<std::uint64_t, std::uint64_t>>& regions) override;
};

class FullChangedFileMap : public ChangedFileMap {
 public:
  std::shared_ptr<ChangedFile> Get(const std::u16string& fileName) override;
};

class TrackedChangedFileMap : public ChangedFileMap {
 public:
  TrackedChangedFileMap(FileTracker& tracker, std::string changeId)
      : tracker_(&tracker), changeId_(std::move(changeId)) {}
  std::shared_ptr<ChangedFile> Get(const std::u16string& fileName) override;

 private:
  FileTracker* tracker_;
  std::string changeId_;
};

class TrackChecker {
 public:
  virtual ~TrackChecker() = default;
  virtual bool IsTracked(const std::u16string& fileName) = 0;
};

class TrackerAwareTrackChecker : public TrackChecker {
 public:
  explicit TrackerAwareTrackChecker(FileTracker& tracker) : tracker_(&tracker) {}
  bool IsTracked(const std::u16string& fileName) override;

 private:
  FileTracker* tracker_;
};

// Raises 0x3C003F naming a file the checker says is not tracked.
class CheckingChangedFileMap : public ChangedFileMap {
 public:
  CheckingChangedFileMap(std::shared_ptr<TrackChecker> checker, std::shared_ptr<ChangedFileMap> inner)
      : checker_(std::move(checker)), inner_(std::move(inner)) {}
  std::shared_ptr<ChangedFile> Get(const std::u16string& fileName) override;

 private:
  std::shared_ptr<TrackChecker> checker_;
  std::shared_ptr<ChangedFileMap> inner_;
};

// The regions of a ChangedFile as byte intervals, asked for in one call.
class ChangedFileRegionEnumerator : public Enumerator<FileRegion> {
 public:
  explicit ChangedFileRegionEnumerator(std::shared_ptr<ChangedFile> file) : file_(std::move(file)) {}
  bool Enumerate(Collector<FileRegion>& collector) override;

 private:
  std::shared_ptr<ChangedFile> file_;
};

}  // namespace Vhd
