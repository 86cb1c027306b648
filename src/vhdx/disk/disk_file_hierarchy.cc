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

void DiskFileHierarchy::OpenParent(rio_dir& dir, SelectiveMetadataConsumer& consumer,
                                   std::vector<std::u16string>& chain) {
  if (GetFileType() != kDifferencingFile) return;
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
  // A crafted chain may name one of its own files again, or never end.
  Common::Error loop;
  if (std::find(chain.begin(), chain.end(), found.FullName) != chain.end())
    loop = Common::MessageError(VR_SITE, kParentCycle, {found.FullName});
  else if (chain.size() >= kMaxChainDepth)
    loop = Common::MessageError(VR_SITE, kChainTooDeep, {Decimal(kMaxChainDepth)});
  if (loop) {
    Common::Error error = Common::MessageError(VR_SITE, kParentNotFound);
    error.AddReason(loop);
    throw error;
  }

  auto parent = std::make_unique<DiskFileHierarchy>(std::move(found.File), false, consumer, found.FullName);
  if (!(parent->GetWriteGuids().DataWriteGuid == linkage)) throw Common::MessageError(VR_SITE, kLinkageMismatch);
  // Reads hand the parent a buffer cut in this file's sectors.
  const std::uint32_t own = GetDiskParameters().LogicalSectorSize;
  const std::uint32_t theirs = parent->GetDiskParameters().LogicalSectorSize;
  if (own != theirs) throw Common::MessageError(VR_SITE, kParentSectorSize, {Decimal(theirs), Decimal(own)});

  chain.push_back(found.FullName);
  parent->OpenParent(*found.Folder, consumer, chain);
  parent_ = std::move(parent);
}

void DiskFileHierarchy::Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) {
  FileHoldingDiskFile::Read(sector, wanted, buffer);
  const std::uint64_t n = wanted.GetSize();
  if (!parent_ || wanted.Find(true) >= n) return;

  const DiskParameters own = GetDiskParameters();
  const DiskParameters theirs = parent_->GetDiskParameters();
  const std::uint64_t parentSectors = theirs.VirtualSize / theirs.LogicalSectorSize;
  std::uint64_t m = 0;
  if (sector < parentSectors) {
    m = std::min(parentSectors - sector, n);
    parent_->Read(sector, *wanted.GetSubBitmap(0, m), buffer);
  }
  // Past the parent's end the child reads zeros.
  auto* bytes = static_cast<std::uint8_t*>(buffer);
  const std::uint64_t size = own.LogicalSectorSize;
  for (std::uint64_t i = wanted.FindNext(m, true); i < n;) {
    const std::uint64_t end = wanted.FindNext(i, false);
    std::memset(bytes + i * size, 0, (end - i) * size);
    wanted.Set(i, end - i, false);
    i = end < n ? wanted.FindNext(end, true) : n;
  }
}

std::unique_ptr<DiskFileHierarchy> OpenHierarchy(rio_dir& dir, const std::u16string& path,
                                                 SelectiveMetadataConsumer& consumer, bool writable) {
  FolderOfFile place = OpenDirOfFile(dir, path);
  std::unique_ptr<i_file> file = OpenFile(*place.Folder, place.Name, writable);
  std::u16string fullName = place.Folder->FullPath() + place.Name;
  auto top = std::make_unique<DiskFileHierarchy>(std::move(file), writable, consumer, fullName);
  std::vector<std::u16string> chain{fullName};
  top->OpenParent(*place.Folder, consumer, chain);
  return top;
}

}  // namespace Vhdx
