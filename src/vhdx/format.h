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

}  // namespace Vhdx::Format
