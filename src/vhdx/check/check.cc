#include "vhdx/check/check.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/guid.h"
#include "vellumrig/error_text.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/disk/disk_file_impl.h"
#include "vhdx/disk/file_assembly.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/format/file_validator.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_image.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/log/log_scanner.h"
#include "vhdx/log/non_persistent_file_wrapper.h"
#include "vhdx/log/play_log.h"
#include "vhdx/metadata/metadata_consumer.h"

namespace Vhdx {

namespace {

std::string Num(std::uint64_t value) { return std::to_string(value); }

// The texts of an error and its causes, outermost first.
std::string Describe(const Common::Error& error) {
  std::string text;
  for (Common::Error e = error; !e.IsEmpty(); e = e.Reason()) {
    if (!text.empty()) text += ": ";
    std::string part = Common::ToUtf8(e.GetText());
    if (!part.empty() && part.back() == '.' && !e.Reason().IsEmpty()) part.pop_back();
    text += part;
  }
  return text;
}

// Findings of one kind told once, with how many there are and the first
// few places, so that a file cut short does not print a line per block.
class Tally {
 public:
  Tally(FindingKind kind, FindingClass cls, std::string many) : kind_(kind), class_(cls), many_(std::move(many)) {}
  void Add(const std::string& place) {
    if (count_++ < 3) places_ += (places_.empty() ? "" : ", ") + place;
  }
  void Emit(CheckReport& report) const {
    if (count_ == 0) return;
    std::string text = Num(count_) + " " + many_ + ": " + places_;
    if (count_ > 3) text += ", ...";
    report.Findings.push_back({kind_, class_, text, count_});
  }

 private:
  FindingKind kind_;
  FindingClass class_;
  std::string many_, places_;
  std::uint64_t count_ = 0;
};

struct Span {
  std::uint64_t Offset, Length;
  std::string What;
};

bool Overlap(std::uint64_t a, std::uint64_t aLength, std::uint64_t b, std::uint64_t bLength) {
  // Differences, not sums: hostile offsets near 2^64 must not wrap.
  return aLength && bLength && (a >= b ? a - b < bLength : b - a < aLength);
}

// Whether any sector of the log starts an entry that carries `guid`,
// complete or not: only a log nobody began may be forgotten.
bool AnyEntryCarries(File& file, const HeaderInfo& header, std::uint64_t fileSize) {
  namespace E = Format::Log::Entry;
  std::array<std::uint8_t, Format::Log::kSectorSize> sector{};
  for (std::uint64_t at = header.LogOffset; at - header.LogOffset < header.LogLength && at < fileSize &&
                                            fileSize - at >= sector.size();
       at += sector.size()) {
    file.Read(at, sector.size(), sector.data());
    if (LoadLe32(&sector[E::kSignature]) == Format::Log::kEntrySignature &&
        LoadGuid(&sector[E::kLogGuid]) == header.LogGuid)
      return true;
  }
  return false;
}

void CheckHeaders(File& raw, CheckReport& report, std::optional<HeaderInfo>& header) {
  const HeaderImages images = ReadHeaderImages(raw);
  const bool valid[2] = {IsValidHeaderImage(images[0]), IsValidHeaderImage(images[1])};
  if (!valid[0] && !valid[1]) {
    report.Findings.push_back({FindingKind::NoValidHeader, FindingClass::Corruption,
                               "neither header copy is valid (offsets 65536 and 131072)", 1});
    return;
  }
  for (std::size_t i = 0; i < 2; ++i)
    if (!valid[i])
      report.Findings.push_back({FindingKind::HeaderInvalid, FindingClass::Repairable,
                                 "header copy " + Num(i + 1) + " (offset " + Num(Format::kHeaderOffsets[i]) +
                                     ") is damaged; the other is in force",
                                 1});
  if (valid[0] && valid[1] && SequenceNumberOf(images[0]) == SequenceNumberOf(images[1]) && images[0] != images[1])
    report.Findings.push_back({FindingKind::HeaderTie, FindingClass::Repairable,
                               "both header copies are valid with sequence number " + Num(SequenceNumberOf(images[0])) +
                                   " but differ (a rewrite stopped half-way); the first is in force",
                               1});
  header = DecodeHeaderInfo(images[*FindCurrentHeader(images)]);
}

// The BAT, chunk by chunk: every present block and sector bitmap inside
// the file, off the file's own structures and apart from each other; the
// sector bitmap of a child's chunk with no bits set for blocks it lacks.
void CheckBlocks(File& view, DiskFile& disk, const HeaderInfo& header, bool bitmaps, CheckReport& report) {
  const DiskFileLayout layout = disk.GetLayout();
  const DiskParameters parameters = disk.GetDiskParameters();
  const bool child = disk.GetFileType() == kDifferencingFile;
  const BlockGeometry g = BlockGeometry::Make(layout.BlockSize, parameters.LogicalSectorSize, parameters.VirtualSize);
  const std::uint64_t size = report.FileSize;
  report.Blocks = g.PayloadBlocks;

  std::vector<Span> reserved = {{0, Format::kMiB, "the headers"}, {header.LogOffset, header.LogLength, "the log"}};
  for (const RegionTableEntry& region : RegionTableReader::Read(view))
    reserved.push_back({region.FileOffset, region.Length, "a region at offset " + Num(region.FileOffset)});

  Tally badState(FindingKind::BadBlockState, FindingClass::Corruption, "BAT entries hold no valid state");
  Tally pastEnd(FindingKind::BlockPastEnd, FindingClass::Corruption,
                "blocks lie past the end of the file (" + Num(size) + " bytes)");
  Tally overStructures(FindingKind::BlockOverStructures, FindingClass::Corruption,
                       "blocks lie over the file's own structures");
  Tally shared(FindingKind::BlocksShareBytes, FindingClass::Corruption,
               "blocks share bytes with another block or sector bitmap");
  Tally missing(FindingKind::BitmapMissing, FindingClass::Corruption,
                "partly present blocks have no sector bitmap");
  Tally stale(FindingKind::StaleBitmapBits, FindingClass::Repairable,
              "blocks that are not present have bits set in their sector bitmap");

  // Which MiB of the file a block or bitmap took already: offsets and sizes
  // are whole MiB, so one bit each finds any two that share bytes, in
  // memory that grows with the file and not with a list of blocks.
  std::vector<bool> taken((size + Format::kMiB - 1) / Format::kMiB);
  // Places a block or bitmap; true when it lies wholly in the file.
  auto place = [&](std::uint64_t offset, std::uint64_t length, bool isBitmap, std::uint64_t index) {
    auto where = [&] {
      std::string text = isBitmap ? "the sector bitmap of chunk " : "block ";
      return text.append(Num(index)).append(" at offset ").append(Num(offset));
    };
    bool inside = offset <= size && size - offset >= length;
    if (!inside) pastEnd.Add(where());
    for (const Span& r : reserved)
      if (Overlap(offset, length, r.Offset, r.Length)) {
        overStructures.Add(where() + " (" + r.What + ")");
        inside = false;
        break;
      }
    bool sharing = false;
    const std::uint64_t first = offset / Format::kMiB, units = length / Format::kMiB;
    for (std::uint64_t unit = first; unit < taken.size() && unit - first < units; ++unit) {
      sharing = sharing || taken[unit];
      taken[unit] = true;
    }
    if (sharing) shared.Add(where());
    return inside;
  };

  const std::uint64_t ratio = g.ChunkRatio, chunks = (g.PayloadBlocks + ratio - 1) / ratio;
  std::vector<std::uint64_t> table(ratio + 1);
  std::vector<std::uint8_t> bitmap;
  const std::uint64_t bytesPerBlock = g.SectorsPerBlock / 8;
  for (std::uint64_t c = 0; c < chunks; ++c) {
    // Entries past the end of the file read as absent.
    std::fill(table.begin(), table.end(), 0);
    const std::uint64_t at = layout.BatOffset + c * (ratio + 1) * sizeof(BatEntry);
    if (at < size) view.Read(at, std::min<std::uint64_t>(table.size() * 8, size - at), table.data());
    const std::uint64_t first = c * ratio, count = std::min(ratio, g.PayloadBlocks - first);

    // Only a child's table has an entry for the bitmap of a last, incomplete
    // chunk; elsewhere that slot is not part of the table.
    const bool hasMap = child || count == ratio;
    const BatEntry map(hasMap ? LoadLe64(reinterpret_cast<const std::uint8_t*>(&table[ratio])) : 0);
    bool mapInFile = false;
    if (map.GetState() == SB_BLOCK_PRESENT)
      mapInFile = place(map.GetFileOffset(), kSectorBitmapBlockSize, true, c);
    else if (map.GetState() != SB_BLOCK_NOT_PRESENT)
      badState.Add("the sector bitmap of chunk " + Num(c) + " (state " + Num(map.GetState()) + ")");
    if (child && bitmaps && mapInFile) {
      bitmap.resize(kSectorBitmapBlockSize);
      view.Read(map.GetFileOffset(), bitmap.size(), bitmap.data());
    } else {
      bitmap.clear();
    }

    for (std::uint64_t j = 0; j < count; ++j) {
      const BatEntry entry(LoadLe64(reinterpret_cast<const std::uint8_t*>(&table[j])));
      auto block = [&] { return std::string("block ").append(Num(first + j)); };
      switch (entry.GetState()) {
        case PAYLOAD_BLOCK_PARTIALLY_PRESENT:
          if (!child) {
            badState.Add(block() + " (partly present outside a differencing file)");
          } else if (map.GetState() != SB_BLOCK_PRESENT) {
            missing.Add(block());
          }
          [[fallthrough]];
        case PAYLOAD_BLOCK_FULLY_PRESENT:
          ++report.Allocated;
          place(entry.GetFileOffset(), g.BlockSize, false, first + j);
          break;
        case PAYLOAD_BLOCK_NOT_PRESENT:
        case PAYLOAD_BLOCK_UNDEFINED:
        case PAYLOAD_BLOCK_ZERO:
        case PAYLOAD_BLOCK_UNMAPPED: {
          if (bitmap.empty()) break;
          const auto* bits = bitmap.data() + j * bytesPerBlock;
          if (std::any_of(bits, bits + bytesPerBlock, [](std::uint8_t b) { return b != 0; })) {
            stale.Add(block());
            report.StaleBits.push_back({map.GetFileOffset() + j * bytesPerBlock, bytesPerBlock});
          }
          break;
        }
        default:
          badState.Add(block() + " (state " + Num(entry.GetState()) + ")");
      }
    }
  }

  for (const Tally* t : {&badState, &pastEnd, &overStructures, &shared, &missing, &stale}) t->Emit(report);
}

}  // namespace

bool CheckReport::Has(FindingKind kind) const { return Count(kind) != 0; }

bool CheckReport::HasCorruption() const {
  return std::any_of(Findings.begin(), Findings.end(),
                     [](const Finding& f) { return f.Class == FindingClass::Corruption; });
}

std::uint64_t CheckReport::Count(FindingKind kind) const {
  std::uint64_t count = 0;
  for (const Finding& f : Findings)
    if (f.Kind == kind) count += f.Count;
  return count;
}

CheckReport CheckContainer(ri_file& file, bool bitmaps) {
  CheckReport report;
  ReadOnlyFile raw(file);
  FileValidator::CheckFileId(raw);
  report.FileSize = raw.GetSize();

  std::optional<HeaderInfo> header;
  CheckHeaders(raw, report, header);
  if (!header) return report;
  const bool tables[2] = {RegionTableReader::ReadCopy(raw, 0).has_value(), RegionTableReader::ReadCopy(raw, 1).has_value()};
  if (tables[0] != tables[1])
    report.Findings.push_back({FindingKind::RegionTableInvalid, FindingClass::Repairable,
                               "region table copy " + std::string(tables[0] ? "2" : "1") +
                                   " is damaged; the other stands",
                               1});

  // Everything below reads the file as the engine would after a replay,
  // made in memory.
  auto owned = std::make_unique<NonPersistentFileWrapper>(std::make_unique<ReadOnlyFile>(file));
  File& view = *owned;
  if (!(header->LogGuid == Common::Guid{})) {
    const std::string guid = Common::GuidToString(header->LogGuid);
    try {
      const LogSequence sequence = LogScanner(raw, header->LogOffset, header->LogLength).Scan(header->LogGuid);
      if (!sequence.empty()) {
        report.Findings.push_back({FindingKind::LogPending, FindingClass::Repairable,
                                   "a log of " + Num(sequence.size()) + " entries (" + guid +
                                       ") waits to be replayed; this check reads the file as replayed",
                                   1});
      } else if (!AnyEntryCarries(raw, *header, report.FileSize)) {
        report.Findings.push_back({FindingKind::LogOrphanGuid, FindingClass::Repairable,
                                   "the header names log " + guid +
                                       ", but no log entry carries it: there is nothing to replay",
                                   1});
        HeaderInfo cleared = *header;
        cleared.LogGuid = {};
        HeaderWriter::Write(view, cleared);
      } else {
        report.Findings.push_back({FindingKind::LogDamaged, FindingClass::Corruption,
                                   "log entries carry " + guid + ", but none can be replayed", 1});
        return report;
      }
    } catch (const Common::Error& error) {
      report.Findings.push_back({FindingKind::LogDamaged, FindingClass::Corruption, Describe(error), 1});
      return report;
    }
  }

  std::unique_ptr<DiskFile> disk;
  try {
    FileValidator::CheckVersion(view);
    const bool replayed = PlayLog(view);
    OnlyCheckingMetadataConsumer consumer;
    disk = std::make_unique<DiskFileImpl>(std::make_unique<ReadOnlyFileAssembly>(std::move(owned)), replayed,
                                          consumer);
  } catch (const Common::Error& error) {
    report.Findings.push_back({FindingKind::Unopenable, FindingClass::Corruption, Describe(error), 1});
    return report;
  }
  CheckBlocks(view, *disk, HeaderReader::Read(view), bitmaps, report);
  return report;
}

}  // namespace Vhdx
