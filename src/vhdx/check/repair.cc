#include "vhdx/check/repair.h"

#include <memory>
#include <vector>

#include "vhdx/disk/file_assembly.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx/format/header_image.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/format/region_table_writer.h"
#include "vhdx/log/play_log.h"

namespace Vhdx {

std::vector<std::string> RepairContainer(rio_file& file, const CheckReport& report) {
  std::vector<std::string> done;
  WriteableFile raw(file);

  // The copy in force is the one every open reads; writing it to both
  // copies changes nothing any reader sees, and ends the disagreement that
  // other readers refuse. A log GUID no entry carries has nothing behind
  // it to replay, so clearing it loses nothing either.
  const bool orphan = report.Has(FindingKind::LogOrphanGuid);
  if (orphan || report.Has(FindingKind::HeaderInvalid) || report.Has(FindingKind::HeaderTie)) {
    const HeaderImages images = ReadHeaderImages(raw);
    HeaderInfo info = DecodeHeaderInfo(images[*FindCurrentHeader(images)]);
    if (orphan) info.LogGuid = {};
    HeaderWriter::Write(raw, info);
    done.push_back(orphan ? "cleared the log GUID that no log entry carries, in both header copies"
                          : "rewrote both header copies from the one in force");
  }
  // Structure writes below go through the assembly, so that the first of
  // them renews the file write GUID as every writer does.
  auto assembly = std::make_unique<WritableFileAssembly>(std::make_unique<WriteableFile>(file));
  if (report.Has(FindingKind::LogPending)) {
    PlayLog(assembly->GetStructureFile());
    done.push_back("replayed the log");
  }
  if (report.Has(FindingKind::RegionTableInvalid)) {
    RegionTableWriter::Write(raw, RegionTableReader::Read(raw));
    done.push_back("rewrote the damaged region table copy from the other");
  }
  // The bitmaps' places come from the BAT; a BAT found corrupt might have
  // them over data, so the bits stay as they are then.
  if (!report.StaleBits.empty() && !report.HasCorruption()) {
    for (const CheckReport::ByteRange& range : report.StaleBits)
      assembly->GetStructureFile().WriteZero(range.Offset, range.Length);
    done.push_back("cleared the sector bitmap bits of " + std::to_string(report.StaleBits.size()) +
                   " blocks that are not present");
  }
  raw.Flush();
  return done;
}

}  // namespace Vhdx
