#include "vhd/changed_file_map.h"

#include "common/site.h"
#include "vhd/errors.h"

namespace Vhd {
namespace {

// The tracker's failures go on exactly as they came.
void Raise(const Common::Error& error) {
  if (error) throw error;
}

}  // namespace

Common::Error FullChangedFile::IsFull(bool& isFull) {
  isFull = true;
  return Common::NoError;
}

Common::Error FullChangedFile::GetRegionCount(std::uint32_t& count) {
  count = 0;
  return Common::NoError;
}

Common::Error FullChangedFile::GetRegions(std::uint32_t, std::uint32_t,
                                          std::vector<std::pair<std::uint64_t, std::uint64_t>>& regions) {
  regions.clear();
  return Common::NoError;
}

std::shared_ptr<ChangedFile> FullChangedFileMap::Get(const std::u16string&) {
  return std::make_shared<FullChangedFile>();
}

std::shared_ptr<ChangedFile> TrackedChangedFileMap::Get(const std::u16string& fileName) {
  std::unique_ptr<ChangedFile> file;
  Raise(tracker_->GetChangedFile(changeId_, fileName, file));
  return std::shared_ptr<ChangedFile>(std::move(file));
}

bool TrackerAwareTrackChecker::IsTracked(const std::u16string& fileName) {
  bool tracked = false;
  Raise(tracker_->IsTracked(fileName, tracked));
  return tracked;
}

std::shared_ptr<ChangedFile> CheckingChangedFileMap::Get(const std::u16string& fileName) {
  if (!checker_->IsTracked(fileName)) throw Common::MessageError(VR_SITE, kFileNotTracked, {fileName});
  return inner_->Get(fileName);
}

bool ChangedFileRegionEnumerator::Enumerate(Collector<FileRegion>& collector) {
  std::uint32_t count = 0;
  Raise(file_->GetRegionCount(count));
  if (count == 0) return true;
  std::vector<std::pair<std::uint64_t, std::uint64_t>> regions;
  Raise(file_->GetRegions(0, count, regions));
  for (const auto& [start, end] : regions) {
    // A region that ends before it starts is the tracker's mistake; taken
    // as empty rather than as a range that wraps around the disk.
    if (!collector.Collect(FileRegion{start, end > start ? end - start : 0})) return false;
  }
  return true;
}

}  // namespace Vhd
