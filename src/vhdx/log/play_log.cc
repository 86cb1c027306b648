#include "vhdx/log/play_log.h"

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/log/log_scanner.h"
#include "vhdx/log/log_sequence_player.h"
#include "vhdx/log/log_trace.h"

namespace Vhdx {

bool PlayLog(File& file) {
  HeaderInfo header = HeaderReader::Read(file);
  if (header.LogGuid.IsZero()) return false;
  const std::uint64_t size = file.GetSize();
  if (header.LogOffset > size || header.LogLength > size - header.LogOffset)
    throw Common::MessageError(VR_SITE, kLogBounds,
                               {LogDecimal(header.LogOffset), LogDecimal(header.LogLength)});
  LogSequence sequence = LogScanner(file, header.LogOffset, header.LogLength).Scan(header.LogGuid);
  if (sequence.empty()) throw Common::MessageError(VR_SITE, kLogSequenceEmpty);
  LogSequencePlayer(std::move(sequence)).Play(file);

  // Clearing the LogGuid is what retires the log; the region itself stays.
  // No flush before it: one at the end covers both.
  header = HeaderReader::Read(file);
  header.LogGuid = {};
  HeaderWriter::Write(file, header);
  file.Flush();
  return true;
}

}  // namespace Vhdx
