// The on-disk layout of a VHDX container's first megabyte: every fixed
// offset, size and signature the engine relies on, kept in one place so that
// readers and writers cannot disagree. Module-internal; any part of the
// container engine may include it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/guid.h"

namespace Vhdx::Format {

inline constexpr std::uint64_t kMiB = 0x100000;

// --- File identifier, at the very start of the file.
inline constexpr std::uint64_t kFileIdentifierOffset = 0;
inline constexpr std::size_t kFileIdentifierSize = 520;  // signature + creator text
inline constexpr char kFileIdentifierSignature[8] = {'v', 'h', 'd', 'x', 'f', 'i', 'l', 'e'};

// --- Headers: two copies, of which the valid one with the higher sequence
// number is in force. The reader and the writer both index this table.
inline constexpr std::size_t kHeaderCount = 2;
inline constexpr std::uint64_t kHeaderOffsets[kHeaderCount] = {0x10000, 0x20000};
inline constexpr std::size_t kHeaderSize = 4096;
inline constexpr std::uint32_t kHeaderSignature = 0x64616568;  // "head"

// Field offsets inside a header image.
namespace Header {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kChecksum = 4;
inline constexpr std::size_t kSequenceNumber = 8;
inline constexpr std::size_t kFileWriteGuid = 16;
inline constexpr std::size_t kDataWriteGuid = 32;
inline constexpr std::size_t kLogGuid = 48;
inline constexpr std::size_t kLogVersion = 64;
inline constexpr std::size_t kVersion = 66;
inline constexpr std::size_t kLogLength = 68;
inline constexpr std::size_t kLogOffset = 72;
}  // namespace Header

// The only header version this engine understands.
inline constexpr std::uint16_t kVersion = 1;

// --- Region tables: two identical copies; the first valid one is used.
inline constexpr std::size_t kRegionTableCount = 2;
inline constexpr std::uint64_t kRegionTableOffsets[kRegionTableCount] = {0x30000, 0x40000};
inline constexpr std::size_t kRegionTableSize = 65536;
inline constexpr std::uint32_t kRegionTableSignature = 0x69676572;  // "regi"

namespace RegionTable {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kChecksum = 4;
inline constexpr std::size_t kEntryCount = 8;
inline constexpr std::size_t kReserved = 12;
inline constexpr std::size_t kFirstEntry = 16;
}  // namespace RegionTable

// One entry: GUID, file offset, length, required flag.
namespace RegionEntry {
inline constexpr std::size_t kGuid = 0;
inline constexpr std::size_t kFileOffset = 16;
inline constexpr std::size_t kLength = 24;
inline constexpr std::size_t kRequired = 28;
inline constexpr std::size_t kSize = 32;
}  // namespace RegionEntry

// As many entries as fit behind the table's head (2047). The format itself
// allows no more, and a count above this would make the parser read past
// the table.
inline constexpr std::uint32_t kMaxRegionEntries =
    (kRegionTableSize - RegionTable::kFirstEntry) / RegionEntry::kSize;

// What the engine stores in the Required field of entries it creates.
inline constexpr std::uint32_t kRegionRequired = 1;

// The two regions the engine knows.
inline constexpr Common::Guid kBatRegionGuid{
    0x2DC27766, 0xF623, 0x4200, {0x9D, 0x64, 0x11, 0x5E, 0x9B, 0xFD, 0x4A, 0x08}};
inline constexpr Common::Guid kMetadataRegionGuid{
    0x8B7CA206, 0x4790, 0x4B9A, {0xB8, 0xFE, 0x57, 0x5F, 0x05, 0x0F, 0x88, 0x6E}};

// --- The metadata region: a table of typed items, then their data.
inline constexpr char kMetadataSignature[8] = {'m', 'e', 't', 'a', 'd', 'a', 't', 'a'};
// Item data is never placed in the table area at the start of the region.
inline constexpr std::uint32_t kMetadataTableAreaSize = 65536;

namespace MetadataTable {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kEntryCount = 10;
inline constexpr std::size_t kHeaderSize = 32;
inline constexpr std::size_t kFirstEntry = 32;
}  // namespace MetadataTable

namespace MetadataEntry {
inline constexpr std::size_t kItemId = 0;
inline constexpr std::size_t kOffset = 16;
inline constexpr std::size_t kLength = 20;
inline constexpr std::size_t kFlags = 24;
inline constexpr std::size_t kReserved = 28;
inline constexpr std::size_t kSize = 32;
}  // namespace MetadataEntry

// As many entries as fit in the table area (2047); more would reach into
// item data, so neither the reader nor the writer goes beyond.
inline constexpr std::uint32_t kMaxMetadataEntries =
    (kMetadataTableAreaSize - MetadataTable::kFirstEntry) / MetadataEntry::kSize;

// Bits of an entry's Flags. Only IsUser takes part in an item's identity.
inline constexpr std::uint32_t kMetadataIsUser = 1;
inline constexpr std::uint32_t kMetadataIsVirtualDisk = 2;
inline constexpr std::uint32_t kMetadataIsRequired = 4;

// What the items may say of a new container: blocks are powers of two in
// this range, and a disk is at most 64 TiB.
inline constexpr std::uint32_t kMinBlockSize = 0x100000;
inline constexpr std::uint32_t kMaxBlockSize = 0x10000000;
inline constexpr std::uint64_t kMaxVirtualSize = std::uint64_t{64} << 40;

// The items the engine knows, all system items (IsUser clear).
inline constexpr Common::Guid kFileParametersItem{
    0xCAA16737, 0xFA36, 0x4D43, {0xB3, 0xB6, 0x33, 0xF0, 0xAA, 0x44, 0xE7, 0x6B}};
inline constexpr Common::Guid kVirtualDiskSizeItem{
    0x2FA54224, 0xCD1B, 0x4876, {0xB2, 0x11, 0x5D, 0xBE, 0xD8, 0x3B, 0xF4, 0xB8}};
inline constexpr Common::Guid kPage83DataItem{
    0xBECA12AB, 0xB2E6, 0x4523, {0x93, 0xEF, 0xC3, 0x09, 0xE0, 0x00, 0xC7, 0x46}};
inline constexpr Common::Guid kLogicalSectorSizeItem{
    0x8141BF1D, 0xA96F, 0x4709, {0xBA, 0x47, 0xF2, 0x33, 0xA8, 0xFA, 0xAB, 0x5F}};
inline constexpr Common::Guid kPhysicalSectorSizeItem{
    0xCDA348C7, 0x445D, 0x4471, {0x9C, 0xC9, 0xE9, 0x88, 0x52, 0x51, 0xC5, 0x56}};
inline constexpr Common::Guid kParentLocatorItem{
    0xA8D35F2D, 0xB30B, 0x454D, {0xAB, 0xF7, 0xD3, 0xD8, 0x48, 0x34, 0xAB, 0x0C}};

// The parent locator item: a type GUID, a count, then key/value entries
// that point at UTF-16 text elsewhere in the item.
inline constexpr Common::Guid kVhdxParentLocatorType{
    0xB04AEFB7, 0xD19E, 0x4A81, {0xB7, 0x89, 0x25, 0xB8, 0xE9, 0x44, 0x59, 0x13}};

namespace ParentLocator {
inline constexpr std::size_t kLocatorType = 0;
inline constexpr std::size_t kKeyValueCount = 18;
inline constexpr std::size_t kHeaderSize = 20;
}  // namespace ParentLocator

namespace ParentLocatorEntry {
inline constexpr std::size_t kKeyOffset = 0;
inline constexpr std::size_t kValueOffset = 4;
inline constexpr std::size_t kKeyLength = 8;
inline constexpr std::size_t kValueLength = 10;
inline constexpr std::size_t kSize = 12;
}  // namespace ParentLocatorEntry

// --- The log: entries of whole 4096-byte sectors in a ring inside the log
// region. Only read here; the engine never writes an entry.
namespace Log {
inline constexpr std::size_t kSectorSize = 4096;
inline constexpr std::uint32_t kEntrySignature = 0x65676F6C;       // "loge"
inline constexpr std::uint32_t kDataDescriptorSignature = 0x63736564;  // "desc"
inline constexpr std::uint32_t kZeroDescriptorSignature = 0x6F72657A;  // "zero"
inline constexpr std::uint32_t kDataSectorSignature = 0x61746164;  // "data"

// The entry header, at the start of the entry's first sector.
namespace Entry {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kChecksum = 4;
inline constexpr std::size_t kEntryLength = 8;
inline constexpr std::size_t kTail = 12;
inline constexpr std::size_t kSequenceNumber = 16;
inline constexpr std::size_t kDescriptorCount = 24;
inline constexpr std::size_t kLogGuid = 32;
inline constexpr std::size_t kFlushedFileOffset = 48;
inline constexpr std::size_t kLastFileOffset = 56;
inline constexpr std::size_t kFirstDescriptor = 64;
}  // namespace Entry

// A data ("desc") or zero ("zero") descriptor; the two share their layout
// but for bytes 4 to 15.
namespace Descriptor {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kTrailingBytes = 4;
inline constexpr std::size_t kLeadingBytes = 8;
inline constexpr std::size_t kZeroLength = 8;
inline constexpr std::size_t kFileOffset = 16;
inline constexpr std::size_t kSequenceNumber = 24;
inline constexpr std::size_t kSize = 32;
}  // namespace Descriptor

inline constexpr std::uint32_t kDescriptorsInFirstSector = 126;
inline constexpr std::uint32_t kDescriptorsPerSector = 128;
static_assert(Entry::kFirstDescriptor + kDescriptorsInFirstSector * Descriptor::kSize == kSectorSize);
static_assert(kDescriptorsPerSector * Descriptor::kSize == kSectorSize);

// A data sector: its signature and sequence number stand where the first 8
// and the last 4 bytes of the payload go; the descriptor keeps those bytes.
namespace DataSector {
inline constexpr std::size_t kSignature = 0;
inline constexpr std::size_t kSequenceHigh = 4;
inline constexpr std::size_t kSequenceLow = 4092;
inline constexpr std::size_t kLeadingSize = 8;
inline constexpr std::size_t kTrailingSize = 4;
}  // namespace DataSector
}  // namespace Log

}  // namespace Vhdx::Format
