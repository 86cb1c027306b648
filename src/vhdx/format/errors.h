// The errors the container engine raises: code and message entry together,
// so that a raise site reads as one line. Module-internal.
#pragma once

#include "common/message_error.h"
#include "vellumrig/file.h"

namespace Vhdx {

using Common::ErrorMessage;
namespace Msg = Common::Msg;

// Layout of the container.
inline constexpr ErrorMessage kUnknownFormat{0x3C0003, Msg::EngineUnknownFormat};
inline constexpr ErrorMessage kInvalidVersion{0x3C0021, Msg::EngineInvalidVersion};
inline constexpr ErrorMessage kNoCurrentHeader{0x3C0010, Msg::EngineNoCurrentHeader};
inline constexpr ErrorMessage kRegionTableInvalid{0x3C0011, Msg::EngineRegionTableInvalid};
inline constexpr ErrorMessage kRegionsOverlap{0x3C0011, Msg::EngineRegionsOverlap};
inline constexpr ErrorMessage kRegionEntryMissing{0x3C0018, Msg::EngineRegionEntryMissing};
// A block size and sector size whose arithmetic would divide by zero or
// leave sectors of a chunk without a BAT entry: refused before any use.
inline constexpr ErrorMessage kBadBlockGeometry{0x3C0003, Msg::EngineBadBlockGeometry};

// Blocks and the BAT.
inline constexpr ErrorMessage kUnknownBlockState{0x3C001A, Msg::EngineUnknownBlockState};
inline constexpr ErrorMessage kPartialInFixed{0x3C0019, Msg::EnginePartialInFixed};
inline constexpr ErrorMessage kBitmapMissing{0x3C001B, Msg::EngineBitmapMissing};
inline constexpr ErrorMessage kBeyondAllocation{0x3C0008, Msg::EngineBeyondAllocation};
// A write whose BAT entries lie behind a BAT region stated too short.
inline constexpr ErrorMessage kBatRegionShort{0x3C0008, Msg::EngineBatRegionShort};

// The metadata region and its items.
inline constexpr ErrorMessage kMetadataSignature{0x3C0012, Msg::EngineMetadataSignature};
inline constexpr ErrorMessage kMetadataRequired{0x3C0027, Msg::EngineMetadataRequired};
inline constexpr ErrorMessage kMetadataUnsupported{0x3C0028, Msg::EngineMetadataUnsupported};
inline constexpr ErrorMessage kMetadataLength{0x3C0016, Msg::EngineMetadataLength};
inline constexpr ErrorMessage kMetadataMultiple{0x3C0026, Msg::EngineMetadataMultiple};
inline constexpr ErrorMessage kMetadataNotAllowed{0x3C0037, Msg::EngineMetadataNotAllowed};
inline constexpr ErrorMessage kInvalidMetadataKey{0x3C0038, Msg::EngineInvalidMetadataKey};
inline constexpr ErrorMessage kMetadataNotFound{0x3C0039, Msg::EngineMetadataNotFound};
inline constexpr ErrorMessage kLocatorType{0x3C0013, Msg::EngineLocatorType};
inline constexpr ErrorMessage kLocatorBounds{0x3C0014, Msg::EngineLocatorBounds};
inline constexpr ErrorMessage kNoFreeSpace{0x3C0031, Msg::EngineNoFreeSpace};

// File regions and space management: faults of the engine itself.
inline constexpr ErrorMessage kInternalError{0x3C0000, Msg::InternalError};
inline constexpr ErrorMessage kRegionBounds{0x3C0036, Msg::EngineRegionBounds};
inline constexpr ErrorMessage kOverlappingCopy{0x3C0032, Msg::EngineOverlappingCopy};
inline constexpr ErrorMessage kSpaceNotFound{0x3C0033, Msg::EngineSpaceNotFound};
inline constexpr ErrorMessage kSpaceBounds{0x3C0034, Msg::EngineSpaceBounds};
inline constexpr ErrorMessage kSpaceOccupied{0x3C0035, Msg::EngineSpaceOccupied};

// The in-memory overlay of a read-only open: faults of its own bookkeeping.
inline constexpr ErrorMessage kReadBeyondRange{0x3C003E, Msg::EngineReadBeyondRange};
inline constexpr ErrorMessage kMergeDisjointRanges{0x3C003D, Msg::EngineMergeDisjointRanges};

// The log: a replay that cannot go on, and a header that names a log that
// cannot be there.
inline constexpr ErrorMessage kLogSequenceEmpty{0x3C002B, Msg::EngineLogSequenceEmpty};
inline constexpr ErrorMessage kFileTruncated{0x3C002A, Msg::EngineFileTruncated};
inline constexpr ErrorMessage kInvalidLogEntry{0x3C0029, Msg::EngineInvalidLogEntry};
inline constexpr ErrorMessage kLogLengthZero{0x3C002B, Msg::EngineLogLengthZero};
inline constexpr ErrorMessage kLogTooLarge{0x3C002B, Msg::EngineLogTooLarge};
inline constexpr ErrorMessage kLogScanLimit{0x3C002B, Msg::EngineLogScanLimit};
inline constexpr ErrorMessage kLogBounds{0x3C002B, Msg::EngineLogBounds};

// File errors of the raw operations, with the engine's own wording.
inline constexpr ErrorMessage kEndOfFile{FileError::EndOfFile, Msg::EndOfFileReached};
inline constexpr ErrorMessage kDiskFull{FileError::DiskFull, Msg::DiskFullShort};
inline constexpr ErrorMessage kReadOnly{FileError::ReadOnly, Msg::FileReadOnly};

// Opening a disk file, writing blocks.
inline constexpr ErrorMessage kNoLogicalSectorSize{0x3C001C, Msg::EngineNoLogicalSectorSize};
inline constexpr ErrorMessage kNoDiskSize{0x3C001D, Msg::EngineNoDiskSize};
inline constexpr ErrorMessage kNoFileParameters{0x3C001E, Msg::EngineNoFileParameters};
inline constexpr ErrorMessage kUnknownFileType{0x3C0020, Msg::EngineUnknownFileType};
inline constexpr ErrorMessage kBufferBounds{0x3C001F, Msg::EngineBufferBounds};
inline constexpr ErrorMessage kOverlappingBlock{0x3C0040, Msg::EngineOverlappingBlock};

// Chains of differencing files.
inline constexpr ErrorMessage kOpenDirFailed{0x3C002D, Msg::EngineOpenDirFailed};
inline constexpr ErrorMessage kOpenFileFailed{0x3C002C, Msg::EngineOpenFileFailed};
inline constexpr ErrorMessage kNoParentLinkage{0x3C0024, Msg::EngineNoParentLinkage};
inline constexpr ErrorMessage kNoParentEntries{0x3C0022, Msg::EngineNoParentEntries};
inline constexpr ErrorMessage kParentNotFound{0x3C0030, Msg::EngineParentNotFound};
inline constexpr ErrorMessage kLinkageMismatch{0x3C0025, Msg::EngineLinkageMismatch};
inline constexpr ErrorMessage kParentSectorSize{0x3C0025, Msg::EngineParentSectorSize};
inline constexpr ErrorMessage kNotAllSectorsRead{0x3C0023, Msg::EngineNotAllSectorsRead};
// The reason behind kParentNotFound when a chain loops.
inline constexpr ErrorMessage kParentCycle{0x3C0030, Msg::EngineParentCycle};

// Creating and deleting containers.
inline constexpr ErrorMessage kCodeNotImplemented{0x100401, Msg::CodeNotImplemented};
inline constexpr ErrorMessage kInvalidArguments{0x3C0001, Msg::InvalidArguments};
inline constexpr ErrorMessage kBadBlockSize{0x3C0001, Msg::EngineBadBlockSize};
inline constexpr ErrorMessage kBadSectorSize{0x3C0001, Msg::EngineBadSectorSize};
inline constexpr ErrorMessage kBadVirtualSize{0x3C0001, Msg::EngineBadVirtualSize};
inline constexpr ErrorMessage kBackslashInPath{0x3C0001, Msg::EngineBackslashInPath};
inline constexpr ErrorMessage kCreateFailed{0x3C0005, Msg::EngineCreateFailed};
inline constexpr ErrorMessage kDeleteFileFailed{0x3C002E, Msg::EngineDeleteFileFailed};
inline constexpr ErrorMessage kDeleteFailed{0x3C0009, Msg::EngineDeleteFailed};
inline constexpr ErrorMessage kNoTracker{0x3C003B, Msg::EngineNoTracker};
inline constexpr ErrorMessage kSectorSizeNotSupported{0x3C003A, Msg::EngineSectorSizeNotSupported};
inline constexpr ErrorMessage kSizeNotSupported{0x3C000B, Msg::EngineSizeNotSupported};
inline constexpr ErrorMessage kInvalidAdapter{0x3C000A, Msg::EngineInvalidAdapter};

}  // namespace Vhdx
