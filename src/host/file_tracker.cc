// The public face of the tracker: errors returned instead of thrown, wide
// paths in, and the folders that report to it.
#include "vellumrig/file_tracker.h"

#include <new>

#include "common/site.h"
#include "host/posix_errors.h"
#include "host/posix_path.h"
#include "host/tracker_core.h"
#include "host/tracking_folder.h"
#include "vellumrig/error_text.h"
#include "vellumrig/host.h"

namespace Host {
namespace {

class Changed final : public ChangedFile {
 public:
  Changed(bool full, std::vector<std::pair<std::uint64_t, std::uint64_t>> regions)
      : full_(full), regions_(std::move(regions)) {}

  Common::Error IsFull(bool& isFull) override {
    isFull = full_;
    return {};
  }
  Common::Error GetRegionCount(std::uint32_t& count) override {
    count = static_cast<std::uint32_t>(std::min<std::size_t>(regions_.size(), UINT32_MAX));
    return {};
  }
  Common::Error GetRegions(std::uint32_t first, std::uint32_t count,
                           std::vector<std::pair<std::uint64_t, std::uint64_t>>& regions) override {
    if (first > regions_.size() || count > regions_.size() - first)
      return detail::ErrnoError(VR_SITE, FileError::Read, EINVAL);
    regions.assign(regions_.begin() + first, regions_.begin() + first + count);
    return {};
  }

 private:
  const bool full_;
  const std::vector<std::pair<std::uint64_t, std::uint64_t>> regions_;
};

// `path` made absolute from the current folder and normalised, as the
// tracker keys its files.
bool Absolute(const std::u16string& path, std::string& out) {
  std::string base = "/";
  if (path.empty() || !detail::IsPathSeparator(path[0])) {
    if (!detail::CurrentFolder(base)) return false;
  }
  out = detail::ResolvePath(base, path);
  return true;
}

// Runs `body`, turning what it throws into the returned error.
template <class Body>
Common::Error Guard(const std::u16string* path, Body body) {
  try {
    if (path) {
      std::string absolute;
      if (!Absolute(*path, absolute)) return detail::ErrnoError(VR_SITE, FileError::Open, ENOENT);
      body(absolute);
    } else {
      body(std::string());
    }
    return {};
  } catch (const Common::Error& error) {
    return error;
  } catch (const std::bad_alloc&) {
    return detail::ErrnoError(VR_SITE, FileError::NoMemory, ENOMEM);
  }
}

class Tracker final : public TrackingHost {
 public:
  explicit Tracker(std::shared_ptr<detail::TrackerCore> core) : core_(std::move(core)) {}

  Common::Error GetCurrentChangeID(std::string& id) override {
    return Guard(nullptr, [&](const std::string&) { id = core_->CurrentChangeId(); });
  }

  Common::Error GetChangedFile(const std::string& id, const std::u16string& fileName,
                               std::unique_ptr<ChangedFile>& changedFile) override {
    changedFile.reset();
    return Guard(&fileName, [&](const std::string& path) {
      detail::TrackerCore::Answer answer = core_->Changes(id, path);
      if (answer.Tracked)
        changedFile = std::make_unique<Changed>(answer.Full, std::move(answer.Regions));
    });
  }

  Common::Error IsTracked(const std::u16string& fileName, bool& isTracked) override {
    isTracked = false;
    return Guard(&fileName,
                 [&](const std::string& path) { isTracked = core_->IsTracked(path); });
  }

  Common::Error Track(const std::u16string& path) override {
    return Guard(&path, [&](const std::string& absolute) { core_->Track(absolute); });
  }

  std::unique_ptr<rio_dir> OpenFolder(const std::u16string& path) override {
    return detail::TrackingFolder(Host::OpenFolder(path, false), core_);
  }

 private:
  const std::shared_ptr<detail::TrackerCore> core_;
};

}  // namespace

std::unique_ptr<TrackingHost> OpenTracker(const std::u16string& databasePath,
                                          Common::Error& error) {
  std::unique_ptr<TrackingHost> tracker;
  error = Guard(&databasePath, [&](const std::string& path) {
    tracker = std::make_unique<Tracker>(std::make_shared<detail::TrackerCore>(path));
  });
  return tracker;
}

}  // namespace Host
