#include "vhdx/disk/disk.h"

#include <algorithm>
#include <vector>

#include "common/message_error.h"
#include "common/site.h"
#include "vhd/collector_delegate.h"
#include "vhd/saturation_checking.h"
#include "vhd/saturation_preserver.h"
#include "vhd/single_value_collector.h"
#include "vhd/threshould_checking_collector.h"
#include "vhd/union.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/format/errors.h"
#include "vhdx/metadata/well_known_items.h"

namespace Vhdx {

DiskImpl::DiskImpl(rio_dir& dir, const std::u16string& name, SelectiveMetadataConsumer& consumer, bool writable,
                   FileTracker* tracker)
    : top_(OpenHierarchy(dir, name, consumer, writable)), tracker_(tracker) {}

DiskImpl::~DiskImpl() = default;

DiskParameters DiskImpl::GetDiskParameters() { return top_->GetDiskParameters(); }

void DiskImpl::Read(std::uint64_t sector, std::uint64_t count, void* buffer) {
  const std::shared_ptr<Vhd::DataOwningBitmap> wanted = Vhd::CreateBitmap(count, true);
  top_->Read(sector, *wanted, buffer);
  if (wanted->Find(true) != count) throw Common::MessageError(VR_SITE, kNotAllSectorsRead);
}

void DiskImpl::Map(std::uint64_t sector, std::uint64_t count, const SectorRunSink& map) {
  // The walk reports each level's runs in turn; they are put in order a
  // piece at a time, so that neither the bitmap nor the list grows with
  // the disk.
  constexpr std::uint64_t kPiece = std::uint64_t{1} << 24;
  const std::uint64_t sectorSize = GetDiskParameters().LogicalSectorSize;
  SectorRun pending;
  const auto emit = [&](const SectorRun& run) {
    const bool joins = pending.Count != 0 && pending.Source == run.Source && pending.Sector + pending.Count == run.Sector &&
                       (run.Source != SectorSource::kData ||
                        (pending.File == run.File &&
                         pending.FileOffset + pending.Count * sectorSize == run.FileOffset));
    if (joins) {
      pending.Count += run.Count;
      return;
    }
    if (pending.Count != 0) map(pending);
    pending = run;
  };
  std::vector<SectorRun> runs;
  for (std::uint64_t done = 0; done < count;) {
    const std::uint64_t n = std::min(kPiece, count - done);
    const std::shared_ptr<Vhd::DataOwningBitmap> wanted = Vhd::CreateBitmap(n, true);
    runs.clear();
    top_->Map(sector + done, *wanted, [&](const SectorRun& run) { runs.push_back(run); });
    if (wanted->Find(true) != n) throw Common::MessageError(VR_SITE, kNotAllSectorsRead);
    std::sort(runs.begin(), runs.end(), [](const SectorRun& a, const SectorRun& b) { return a.Sector < b.Sector; });
    for (const SectorRun& run : runs) emit(run);
    done += n;
  }
  if (pending.Count != 0) map(pending);
}

void DiskImpl::Write(std::uint64_t sector, std::uint64_t count, const void* buffer) {
  top_->Write(sector, count, buffer);
}

void DiskImpl::Flush() {
  // A read-only open has written nothing to flush.
  auto* file = dynamic_cast<o_file*>(&top_->GetHostFile());
  if (!file) return;
  file->Flush();
  if (file->Failed()) throw file->Status;
}

void DiskImpl::EnumerateMetadata(MetadataConsumer& consumer) {
  FilteringMetadataConsumer filter(consumer, WellKnownItems::DiskItems());
  top_->EnumerateMetadata(filter);
}

void DiskImpl::SetMetadata(MetadataProvider& provider) {
  FilteringMetadataProvider filtered(provider, WellKnownItems::DiskItems());
  top_->SetMetadata(filtered);
}

std::string DiskImpl::GetCurrentChangeID() {
  if (!tracker_) throw Common::MessageError(VR_SITE, kNoTracker);
  std::string id;
  if (Common::Error error = tracker_->GetCurrentChangeID(id)) throw error;
  return id;
}

std::shared_ptr<Vhd::ChangedFileMap> DiskImpl::CreateTrackedChangedFileMap(const std::string& changeId) {
  if (!tracker_) throw Common::MessageError(VR_SITE, kNoTracker);
  return std::make_shared<Vhd::CheckingChangedFileMap>(
      std::make_shared<Vhd::TrackerAwareTrackChecker>(*tracker_),
      std::make_shared<Vhd::TrackedChangedFileMap>(*tracker_, changeId));
}

void DiskImpl::GetChangedAreas(const std::string& changeId, const Vhd::DiskArea& area,
                               Vhd::DiskAreaCollector& collector) {
  auto found = changes_.find(changeId);
  if (found == changes_.end()) found = changes_.emplace(changeId, CollectChanges(changeId)).first;
  found->second->Intersect(area, collector);
}

// The union of what each file of the chain changed, from the top down; the
// walk stops at the first file after which the whole disk is known changed.
std::shared_ptr<Vhd::CollectingDiskAreaIntersection> DiskImpl::CollectChanges(const std::string& changeId) {
  const DiskParameters parameters = top_->GetDiskParameters();
  const std::uint64_t sectors = parameters.VirtualSize / parameters.LogicalSectorSize;
  Vhd::DiskAreaUnion changed;
  ThreshouldCheckingCollector<Vhd::DiskArea> goal({0, sectors}, &FallsShort);
  SingleValueSaturableCollectorFactory<Vhd::DiskArea> factory(goal);
  EnumeratorSaturationChecker<Vhd::DiskArea> checker(changed, factory);
  SaturationCheckingCollector<Vhd::DiskArea> checking(checker,
                                                      std::make_shared<Vhd::CollectorDelegate<Vhd::DiskArea>>(changed));

  const std::shared_ptr<Vhd::ChangedFileMap> map =
      changeId == "*" ? std::make_shared<Vhd::FullChangedFileMap>() : CreateTrackedChangedFileMap(changeId);
  for (DiskFileHierarchy* file = top_.get(); file; file = file->GetParent()) {
    Vhd::SaturationPreserver<Vhd::DiskArea> preserver(checking);
    if (const std::shared_ptr<ChangedFile> changes = map->Get(file->GetFullName()))
      file->CollectChangedAreas(*changes, preserver);
    if (preserver.IsSaturated()) break;
  }
  auto result = std::make_shared<Vhd::CollectingDiskAreaIntersection>();
  changed.Enumerate(*result);
  return result;
}

}  // namespace Vhdx
