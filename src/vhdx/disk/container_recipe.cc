#include "vhdx/disk/container_recipe.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/disk/folder_access.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/format/write_guid.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/parent_locator_writer.h"
#include "vhdx/metadata/well_known_items.h"

namespace Vhdx {

namespace {

// Where the structures lie: the log, the metadata and the BAT each on their
// own MiB behind the headers, then (fixed) the blocks.
constexpr std::uint64_t kLogOffset = 0x100000;
constexpr std::uint32_t kLogLength = 0x100000;
constexpr std::uint64_t kMetadataRegionOffset = 0x200000;
constexpr std::uint32_t kMetadataRegionLength = 0x100000;
constexpr std::uint64_t kBatOffset = 0x300000;

std::u16string Decimal(std::uint64_t value) { return Common::FromUtf8(std::to_string(value)); }

struct Layout {
  BlockGeometry Geometry;
  std::uint64_t BatLength = 0;
  std::uint64_t DataOffset = 0;  // the first block of a fixed container
};

Layout LayoutOf(const ContainerRecipe& recipe) {
  Layout layout;
  layout.Geometry = BlockGeometry::Make(recipe.BlockSize, recipe.LogicalSectorSize, recipe.VirtualSize);
  std::uint64_t entries = layout.Geometry.BatEntryCount;
  // A child's last chunk, even when incomplete, needs room for the entry of
  // its sector bitmap: its first partial write puts one there.
  if (recipe.Type == ContainerRecipe::Kind::Differencing) {
    const std::uint64_t ratio = layout.Geometry.ChunkRatio;
    entries = (layout.Geometry.PayloadBlocks + ratio - 1) / ratio * (ratio + 1);
  }
  const std::uint64_t batBytes = entries * sizeof(BatEntry);
  layout.BatLength = (batBytes + Format::kMiB - 1) / Format::kMiB * Format::kMiB;
  if (layout.BatLength > UINT32_MAX) throw Common::MessageError(VR_SITE, kBeyondAllocation);
  layout.DataOffset = kBatOffset + layout.BatLength;
  return layout;
}

template <class T>
void SetItem(MetadataModifier& modifier, const MetadataDescriptor& descriptor, const T& value) {
  std::array<std::uint8_t, sizeof(T)> bytes{};
  value.Store(bytes.data());
  modifier.Set(descriptor, bytes.data(), bytes.size());
}

void WriteMetadata(File& file, const ContainerRecipe& recipe) {
  std::array<std::uint8_t, Format::MetadataTable::kHeaderSize> header{};
  std::memcpy(header.data(), Format::kMetadataSignature, sizeof Format::kMetadataSignature);
  file.Write(kMetadataRegionOffset, header.size(), header.data());

  // Creation must fit the region: growing it here would be a fault.
  MetadataModifierImpl modifier(std::make_unique<ThrowingExpandableFileRegion>(
      std::make_unique<WritableFileRegionImpl>(file, Area{kMetadataRegionOffset, kMetadataRegionLength})));
  std::uint32_t flags = 0;
  if (recipe.Type == ContainerRecipe::Kind::Fixed) flags = FileParameters::kLeaveBlocksAllocated;
  if (recipe.Type == ContainerRecipe::Kind::Differencing) flags = FileParameters::kHasParent;
  SetItem(modifier, WellKnownItems::kFileParameters, FileParameters{recipe.BlockSize, flags});
  SetItem(modifier, WellKnownItems::kVirtualDiskSize, VirtualDiskSize{recipe.VirtualSize});
  const Common::Guid page83 = NewWriteGuid();
  modifier.Set(WellKnownItems::kPage83Data, reinterpret_cast<const std::uint8_t*>(&page83), sizeof page83);
  SetItem(modifier, WellKnownItems::kLogicalSectorSize, VirtualDiskLogicalSectorSize{recipe.LogicalSectorSize});
  SetItem(modifier, WellKnownItems::kPhysicalSectorSize, VirtualDiskPhysicalSectorSize{recipe.PhysicalSectorSize});
  if (recipe.Type == ContainerRecipe::Kind::Differencing) {
    const std::vector<std::uint8_t> locator = EncodeParentLocator(recipe.ParentLocator);
    modifier.Set(WellKnownItems::kParentLocator, locator.data(), static_cast<std::uint32_t>(locator.size()));
  }
}

void WriteIdentifierAndHeaders(File& file) {
  std::array<std::uint8_t, Format::kFileIdentifierSize> identifier{};
  std::memcpy(identifier.data(), Format::kFileIdentifierSignature, sizeof Format::kFileIdentifierSignature);
  file.Write(Format::kFileIdentifierOffset, identifier.size(), identifier.data());

  HeaderInfo info;
  info.FileWriteGuid = NewWriteGuid();
  info.DataWriteGuid = NewWriteGuid();
  info.LogVersion = 0;
  info.Version = Format::kVersion;
  info.LogLength = kLogLength;
  info.LogOffset = kLogOffset;
  HeaderWriter::Write(file, info);
}

// Every payload entry fully present at its place in the file, in order;
// the sector bitmap entries between them stay zero (a fixed file has none).
void WriteFixedBat(File& file, const Layout& layout) {
  const BlockGeometry& g = layout.Geometry;
  constexpr std::uint64_t kEntriesPerWrite = Format::kMiB / sizeof(BatEntry);
  std::vector<std::uint64_t> raw;
  for (std::uint64_t first = 0; first < g.BatEntryCount; first += kEntriesPerWrite) {
    const std::uint64_t count = std::min(kEntriesPerWrite, g.BatEntryCount - first);
    raw.assign(count, 0);
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint64_t index = first + i;
      if ((index + 1) % (g.ChunkRatio + 1) == 0) continue;  // a sector bitmap entry
      const std::uint64_t block = index - index / (g.ChunkRatio + 1);
      BatEntry entry;
      entry.SetState(PAYLOAD_BLOCK_FULLY_PRESENT);
      entry.SetFileOffsetMb((layout.DataOffset + block * g.BlockSize) / Format::kMiB);
      StoreLe64(reinterpret_cast<std::uint8_t*>(&raw[i]), entry.Raw());
    }
    file.Write(kBatOffset + first * sizeof(BatEntry), count * sizeof(BatEntry), raw.data());
  }
}

}  // namespace

void LayContainer(File& file, const ContainerRecipe& recipe) {
  const Layout layout = LayoutOf(recipe);
  // An all-zero BAT says no block is present, and an all-zero log is empty.
  // The zeros come from setting the size of the (emptied) file rather than
  // from writing them: the range reads as zeros either way, and a sparse
  // file costs neither time nor space for a BAT of many megabytes.
  file.Expand(0);
  const bool fixed = recipe.Type == ContainerRecipe::Kind::Fixed;
  file.Expand(fixed ? layout.DataOffset + layout.Geometry.PayloadBlocks * recipe.BlockSize
                    : kBatOffset + layout.BatLength);
  if (fixed) WriteFixedBat(file, layout);
  WriteMetadata(file, recipe);
  // The headers and region tables last: until they stand, nothing opens
  // the file as a container.
  WriteIdentifierAndHeaders(file);
  RegionTableWriter::Write(file, {{Format::kMetadataRegionGuid, kMetadataRegionOffset, kMetadataRegionLength,
                                   Format::kRegionRequired},
                                  {Format::kBatRegionGuid, kBatOffset, static_cast<std::uint32_t>(layout.BatLength),
                                   Format::kRegionRequired}});
}

namespace {

bool IsPowerOfTwo(std::uint64_t value) { return value != 0 && (value & (value - 1)) == 0; }

// Reads the physical sector size item of the top file only.
class PhysicalSectorSize : public MetadataConsumer {
 public:
  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data, std::uint32_t size) override {
    if (!descriptor.IsUser() && descriptor.Id == Format::kPhysicalSectorSizeItem && size == 4)
      bytes = VirtualDiskPhysicalSectorSize::Load(data).Bytes;
  }
  std::uint32_t bytes = 0;
};

std::vector<std::u16string> Components(const std::u16string& path) {
  std::vector<std::u16string> parts;
  std::size_t start = 0;
  while (start <= path.size()) {
    const std::size_t end = std::min(path.find(u'/', start), path.size());
    if (end > start) parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

std::u16string Joined(const std::vector<std::u16string>& parts, std::size_t first, const std::u16string& lead) {
  std::u16string text = lead;
  for (std::size_t i = first; i < parts.size(); ++i) {
    if (i > first) text += u'\\';
    text += parts[i];
  }
  return text;
}

}  // namespace

void CheckRecipe(const ContainerRecipe& r) {
  if (!IsPowerOfTwo(r.BlockSize) || r.BlockSize < Format::kMinBlockSize || r.BlockSize > Format::kMaxBlockSize)
    throw Common::MessageError(VR_SITE, kBadBlockSize, {Decimal(r.BlockSize)});
  for (const std::uint32_t size : {r.LogicalSectorSize, r.PhysicalSectorSize})
    if (size != 512 && size != 4096) throw Common::MessageError(VR_SITE, kBadSectorSize, {Decimal(size)});
  if (r.VirtualSize == 0 || r.VirtualSize % r.LogicalSectorSize != 0 || r.VirtualSize > Format::kMaxVirtualSize)
    throw Common::MessageError(VR_SITE, kBadVirtualSize, {Decimal(r.VirtualSize), Decimal(r.LogicalSectorSize)});
  if ((r.Type == ContainerRecipe::Kind::Differencing) == r.ParentLocator.empty())
    throw Common::MessageError(VR_SITE, kInvalidArguments);
  LayoutOf(r);
}

void WriteContainer(File& file, const ContainerRecipe& recipe) {
  CheckRecipe(recipe);
  LayContainer(file, recipe);
}

std::uint64_t FixedFileSize(const ContainerRecipe& recipe) {
  if (recipe.Type != ContainerRecipe::Kind::Fixed) return 0;
  const Layout layout = LayoutOf(recipe);
  return layout.DataOffset + layout.Geometry.PayloadBlocks * recipe.BlockSize;
}

ContainerRecipe ChildOf(rio_dir& dir, const std::u16string& parentPath, const std::u16string& childPath,
                        std::uint32_t blockSize) {
  OnlyCheckingMetadataConsumer checking;
  const std::unique_ptr<DiskFileHierarchy> parent = OpenHierarchy(dir, parentPath, checking, false);
  PhysicalSectorSize physical;
  parent->EnumerateMetadata(physical);

  ContainerRecipe recipe;
  recipe.Type = ContainerRecipe::Kind::Differencing;
  const DiskParameters disk = parent->GetDiskParameters();
  recipe.VirtualSize = disk.VirtualSize;
  recipe.LogicalSectorSize = disk.LogicalSectorSize;
  recipe.PhysicalSectorSize = physical.bytes ? physical.bytes : 4096;
  recipe.BlockSize = blockSize ? blockSize : parent->GetLayout().BlockSize;

  // Both full names are absolute paths of this system; the locator gets
  // them with backslashes, which a name here may hold but a locator cannot.
  const std::u16string& parentName = parent->GetFullName();
  const FolderOfFile child = OpenDirOfFile(dir, childPath);
  const std::u16string childFolder = child.Folder->FullPath();
  for (const std::u16string* path : {&parentName, &childFolder})
    if (path->find(u'\\') != std::u16string::npos) throw Common::MessageError(VR_SITE, kBackslashInPath, {*path});

  const std::vector<std::u16string> from = Components(childFolder), to = Components(parentName);
  std::size_t common = 0;
  while (common < from.size() && common + 1 < to.size() && from[common] == to[common]) ++common;
  std::u16string up;
  for (std::size_t i = common; i < from.size(); ++i) up += u"..\\";
  const std::u16string relative = Joined(to, common, up.empty() ? u".\\" : up);

  // In lower case: some readers take no other hex digits in a linkage.
  std::string guid = Common::GuidToString(parent->GetWriteGuids().DataWriteGuid);
  std::transform(guid.begin(), guid.end(), guid.begin(), [](char c) { return c >= 'A' && c <= 'F' ? c + 32 : c; });
  std::u16string linkage = u"{";
  linkage += Common::FromUtf8(guid);
  linkage += u'}';
  recipe.ParentLocator = {{kParentLinkageKey, linkage},
                          {kRelativePathKey, relative},
                          {kAbsoluteWin32PathKey, Joined(to, 0, u"\\")}};
  return recipe;
}

}  // namespace Vhdx
