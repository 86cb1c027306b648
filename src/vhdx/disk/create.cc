#include "vhdx/disk/create.h"

#include <array>
#include <cstring>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/format/write_guid.h"
#include "vhdx/file/writeable_file.h"

namespace Vhdx {

namespace {

// The recipe's constants.
constexpr std::uint32_t kBlockSize = 0x400000;
constexpr std::uint32_t kPhysicalSectorSize = 4096;
constexpr std::uint64_t kLogOffset = 0x100000;
constexpr std::uint32_t kLogLength = 0x100000;
constexpr std::uint64_t kMetadataRegionOffset = 0x200000;
constexpr std::uint32_t kMetadataRegionLength = 0x100000;
constexpr std::uint64_t kBatOffset = 0x300000;

template <class T>
void SetItem(MetadataModifier& modifier, const MetadataDescriptor& descriptor, const T& value) {
  std::array<std::uint8_t, sizeof(T)> bytes{};
  value.Store(bytes.data());
  modifier.Set(descriptor, bytes.data(), bytes.size());
}

void WriteMetadata(File& file, const CreateParameters& parameters) {
  std::array<std::uint8_t, Format::MetadataTable::kHeaderSize> header{};
  std::memcpy(header.data(), Format::kMetadataSignature, sizeof Format::kMetadataSignature);
  file.Write(kMetadataRegionOffset, header.size(), header.data());

  // Creation must fit the region: growing it here would be a fault.
  MetadataModifierImpl modifier(std::make_unique<ThrowingExpandableFileRegion>(
      std::make_unique<WritableFileRegionImpl>(file, Area{kMetadataRegionOffset, kMetadataRegionLength})));
  SetItem(modifier, WellKnownItems::kFileParameters, FileParameters{kBlockSize, 0});
  SetItem(modifier, WellKnownItems::kVirtualDiskSize, VirtualDiskSize{parameters.VirtualSize});
  const Common::Guid page83 = NewWriteGuid();
  modifier.Set(WellKnownItems::kPage83Data, reinterpret_cast<const std::uint8_t*>(&page83), sizeof page83);
  SetItem(modifier, WellKnownItems::kLogicalSectorSize, VirtualDiskLogicalSectorSize{parameters.LogicalSectorSize});
  SetItem(modifier, WellKnownItems::kPhysicalSectorSize, VirtualDiskPhysicalSectorSize{kPhysicalSectorSize});
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

}  // namespace

void WriteDynamicContainer(File& file, const CreateParameters& parameters) {
  const BlockGeometry geometry = BlockGeometry::Make(kBlockSize, parameters.LogicalSectorSize, parameters.VirtualSize);
  const std::uint64_t batBytes = geometry.BatEntryCount * sizeof(BatEntry);
  const std::uint64_t batLength = (batBytes + Format::kMiB - 1) / Format::kMiB * Format::kMiB;
  if (batLength > UINT32_MAX) throw Common::MessageError(VR_SITE, kBeyondAllocation);

  // An all-zero BAT says no block is present, and an all-zero log is empty.
  // The zeros come from setting the size of the (emptied) file rather than
  // from writing them: the range reads as zeros either way, and a sparse
  // file costs neither time nor space for a BAT of many megabytes.
  file.Expand(0);
  file.Expand(kBatOffset + batLength);
  WriteMetadata(file, parameters);
  WriteIdentifierAndHeaders(file);
  RegionTableWriter::Write(file, {{Format::kMetadataRegionGuid, kMetadataRegionOffset, kMetadataRegionLength,
                                   Format::kRegionRequired},
                                  {Format::kBatRegionGuid, kBatOffset, static_cast<std::uint32_t>(batLength),
                                   Format::kRegionRequired}});
}

void Create(rio_dir& dir, const std::u16string& name, std::uint32_t type, const CreateParameters& parameters,
            std::uint64_t) {
  if (type != kCreateDynamic) throw Common::MessageError(VR_SITE, kCodeNotImplemented);
  // Refused sizes must not leave a file behind.
  BlockGeometry::Make(kBlockSize, parameters.LogicalSectorSize, parameters.VirtualSize);

  std::unique_ptr<rio_file> host = dir.CreateFile(name, 0, 0);
  if (!host) {
    Common::Error error = Common::MessageError(VR_SITE, kCreateFailed);
    error.AddReason(dir.TakeError());
    throw error;
  }
  WriteableFile file(*host);
  WriteDynamicContainer(file, parameters);
}

}  // namespace Vhdx
