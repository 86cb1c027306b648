#include "vhdx/disk/disk_file_hierarchy.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "common/error_chain.h"
#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhdx/format/errors.h"
#include "vhdx/disk/folder_access.h"

namespace Vhdx {

namespace {

int PathKeyRank(const std::u16string& key) {
  if (key == kRelativePathKey) return 0;
  if (key == kVolumePathKey) return 1;
  if (key == kAbsoluteWin32PathKey) return 2;
  return -1;
}

Common::Guid GetParentLinkage(const ParentLocatorEntryList& entries) {
  for (const ParentLocatorEntry& entry : entries)
    if (entry.Key == kParentLinkageKey) return ParseParentLinkage(entry.Value);
  throw Common::MessageError(VR_SITE, kNoParentLinkage);
}

std::u16string Decimal(std::uint64_t value) { return Common::FromUtf8(std::to_string(value)); }

struct FoundParent {
  std::unique_ptr<rio_dir> Folder;
  std::unique_ptr<i_file> File;
  std::u16string FullName;
};

}  // namespace

struct DiskFileHierarchy::Parent {
  std::unique_ptr<DiskFileHierarchy> File;
  // Where the parent's own parent paths are resolved.
  std::unique_ptr<rio_dir> Folder;
};

Common::Guid ParseParentLinkage(const std::u16string& value) {
  std::u16string text;
  const std::size_t open = value.find(u'{');
  if (open == std::u16string::npos || open + 1 == value.size()) {
    text = value.substr(0, value.find(u'}'));
  } else {
    const std::size_t close = value.find(u'}', open + 1);
    text = value.substr(open + 1, close == std::u16string::npos ? std::u16string::npos : close - open - 1);
  }
  Common::Guid guid{};
  if (!Common::GuidFromString(guid, Common::ToUtf8(text).c_str())) guid = Common::Guid{};
  return guid;
}

DiskFileHierarchy::DiskFileHierarchy(std::unique_ptr<i_file> file, bool writable,
                                     SelectiveMetadataConsumer& consumer, std::u16string fullName)
    : FileHoldingDiskFile(std::move(file), writable, consumer), fullName_(std::move(fullName)) {}

DiskFileHierarchy::~DiskFileHierarchy() {
  // Each parent is released with its own parent already taken from it.
  std::unique_ptr<DiskFileHierarchy> next = std::move(parent_);
  while (next) next = std::move(next->parent_);
}

DiskFileHierarchy::Parent DiskFileHierarchy::OpenParent(rio_dir& dir, SelectiveMetadataConsumer& consumer,
                                                        const std::set<std::u16string>& chain) {
  if (GetFileType() != kDifferencingFile) return {};
  const ParentLocatorEntryList entries = GetParentLocatorEntries();
  const Common::Guid linkage = GetParentLinkage(entries);

  std::vector<const ParentLocatorEntry*> candidates;
  for (const ParentLocatorEntry& entry : entries)
    if (PathKeyRank(entry.Key) >= 0) candidates.push_back(&entry);
  std::stable_sort(candidates.begin(), candidates.end(), [](const auto* a, const auto* b) {
    return PathKeyRank(a->Key) < PathKeyRank(b->Key);
  });
  if (candidates.empty()) throw Common::MessageError(VR_SITE, kNoParentEntries);

  FoundParent found;
  Common::Error reasons;
  for (const ParentLocatorEntry* candidate : candidates) {
    try {
      FolderOfFile place = OpenDirOfFile(dir, candidate->Value);
      std::unique_ptr<i_file> file = OpenFile(*place.Folder, place.Name, false);
      std::u16string fullName = place.Folder->FullPath() + place.Name;
      found = {std::move(place.Folder), std::move(file), std::move(fullName)};
      break;
    } catch (const Common::Error& error) {
      reasons = Common::Chained(reasons, error);
    }
  }
  if (!found.File) {
    Common::Error error = Common::MessageError(VR_SITE, kParentNotFound);
    error.AddReason(reasons);
    throw error;
  }
  // A crafted chain may name one of its own files again and never end.
  if (chain.count(found.FullName) != 0) {
    Common::Error error = Common::MessageError(VR_SITE, kParentNotFound);
    error.AddReason(Common::MessageError(VR_SITE, kParentCycle, {found.FullName}));
    throw error;
  }

  auto parent = std::make_unique<DiskFileHierarchy>(std::move(found.File), false, consumer, found.FullName);
  if (!(parent->GetWriteGuids().DataWriteGuid == linkage)) throw Common::MessageError(VR_SITE, kLinkageMismatch);
  // Reads hand the parent a buffer cut in this file's sectors.
  const std::uint32_t own = GetDiskParameters().LogicalSectorSize;
  const std::uint32_t theirs = parent->GetDiskParameters().LogicalSectorSize;
  if (own != theirs) throw Common::MessageError(VR_SITE, kParentSectorSize, {Decimal(theirs), Decimal(own)});

  return {std::move(parent), std::move(found.Folder)};
}

template <class Take, class PastParent>
void DiskFileHierarchy::Walk(std::uint64_t sector, Vhd::Bitmap& wanted, Take take, PastParent pastParent) {
  // Down the chain in a loop, each level with the part of the request that
  // lies within its parent: a long chain must not recurse.
  Vhd::Bitmap* bits = &wanted;
  std::shared_ptr<Vhd::Bitmap> view;
  for (DiskFileHierarchy* level = this; level; level = level->parent_.get()) {
    take(*level, *bits);
    const std::uint64_t n = bits->GetSize();
    if (!level->parent_ || bits->Find(true) >= n) return;

    const DiskParameters theirs = level->parent_->GetDiskParameters();
    const std::uint64_t parentSectors = theirs.VirtualSize / theirs.LogicalSectorSize;
    const std::uint64_t m = sector < parentSectors ? std::min(parentSectors - sector, n) : 0;
    // Past the parent's end the child reads zeros.
    for (std::uint64_t i = bits->FindNext(m, true); i < n;) {
      const std::uint64_t end = bits->FindNext(i, false);
      pastParent(*level, i, end - i);
      bits->Set(i, end - i, false);
      i = end < n ? bits->FindNext(end, true) : n;
    }
    if (m == 0) return;
    view = bits->GetSubBitmap(0, m);
    bits = view.get();
  }
}

void DiskFileHierarchy::Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) {
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  Walk(
      sector, wanted,
      [&](DiskFileHierarchy& level, Vhd::Bitmap& bits) { level.FileHoldingDiskFile::Read(sector, bits, buffer); },
      [&](DiskFileHierarchy& level, std::uint64_t first, std::uint64_t count) {
        const std::uint64_t size = level.GetDiskParameters().LogicalSectorSize;
        std::memset(bytes + first * size, 0, count * size);
      });
}

void DiskFileHierarchy::Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) {
  Walk(
      sector, wanted,
      [&](DiskFileHierarchy& level, Vhd::Bitmap& bits) {
        const SectorRunSink stamped = [&](const SectorRun& run) {
          SectorRun mine = run;
          if (mine.Source == SectorSource::kData) mine.File = &level;
          map(mine);
        };
        level.FileHoldingDiskFile::Map(sector, bits, stamped);
      },
      [&](DiskFileHierarchy&, std::uint64_t first, std::uint64_t count) {
        map({sector + first, count, SectorSource::kHole, 0, nullptr});
      });
}

std::unique_ptr<DiskFileHierarchy> OpenHierarchy(rio_dir& dir, const std::u16string& path,
                                                 SelectiveMetadataConsumer& consumer, bool writable) {
  FolderOfFile place = OpenDirOfFile(dir, path);
  std::unique_ptr<i_file> file = OpenFile(*place.Folder, place.Name, writable);
  std::u16string fullName = place.Folder->FullPath() + place.Name;
  auto top = std::make_unique<DiskFileHierarchy>(std::move(file), writable, consumer, fullName);
  std::set<std::u16string> chain{fullName};
  DiskFileHierarchy* child = top.get();
  std::unique_ptr<rio_dir> folder = std::move(place.Folder);
  for (DiskFileHierarchy::Parent parent = child->OpenParent(*folder, consumer, chain); parent.File;
       parent = child->OpenParent(*folder, consumer, chain)) {
    chain.insert(parent.File->GetFullName());
    child->parent_ = std::move(parent.File);
    child = child->parent_.get();
    folder = std::move(parent.Folder);
  }
  return top;
}

}  // namespace Vhdx
