#include "vhdx/log/log_entry_reader.h"

#include <algorithm>

#include "vhdx/format/crc32c.h"
#include "vhdx/log/filled_data_operation.h"
#include "vhdx/log/invalid_log_entry.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/log/log_trace.h"
#include "vhdx/log/valid_log_entry.h"
#include "vhdx/log/zeroing_data_operation.h"

namespace Vhdx {
namespace {

namespace Log = Format::Log;
namespace Msg = Common::Msg;
constexpr std::uint64_t kSector = Log::kSectorSize;

std::shared_ptr<LogEntry> Invalid(std::uint32_t reason) {
  TraceLog(reason);
  return std::make_shared<InvalidLogEntry>();
}

// The descriptors of one descriptor sector that are interpreted.
struct DescriptorRun {
  const std::uint8_t* First;
  std::uint32_t Count;
};

std::uint64_t CountDataDescriptors(const DescriptorRun& run) {
  std::uint64_t n = 0;
  for (std::uint32_t i = 0; i < run.Count; ++i)
    n += LoadLe32(run.First + i * Log::Descriptor::kSize) == Log::kDataDescriptorSignature;
  return n;
}

// Turns descriptors into operations, reading the data sectors one after
// the other and carrying the entry's checksum over them.
class DescriptorInterpreter {
 public:
  DescriptorInterpreter(File& file, std::uint64_t sequence, std::uint64_t firstDataSector, std::uint32_t crc,
                        DataOperationConsumer& consumer)
      : file_(file), sequence_(sequence), nextData_(firstDataSector), crc_(crc), consumer_(consumer) {}

  bool Interpret(const DescriptorRun& run) {
    for (std::uint32_t i = 0; i < run.Count; ++i)
      if (!InterpretOne(run.First + i * Log::Descriptor::kSize)) return false;
    return true;
  }
  std::uint32_t Crc() const { return crc_; }

 private:
  bool InterpretOne(const std::uint8_t* d) {
    namespace D = Log::Descriptor;
    const std::uint32_t signature = LoadLe32(d + D::kSignature);
    const std::uint64_t sequence = LoadLe64(d + D::kSequenceNumber);
    const bool known = signature == Log::kDataDescriptorSignature || signature == Log::kZeroDescriptorSignature;
    if (!known || sequence != sequence_) {
      TraceLog(Msg::LogInvalidDescriptor, {LogDecimal(signature), LogDecimal(sequence), LogDecimal(sequence_)});
      return false;
    }
    const std::uint64_t fileOffset = LoadLe64(d + D::kFileOffset);
    if (signature == Log::kZeroDescriptorSignature) {
      consumer_.Consume(std::make_unique<ZeroingDataOperation>(fileOffset, LoadLe64(d + D::kZeroLength)));
      return true;
    }
    namespace S = Log::DataSector;
    auto sector = std::make_unique<SectorBuffer>();
    std::uint8_t* s = sector->data();
    file_.Read(nextData_, kSector, s);
    nextData_ += kSector;
    crc_ = Crc32c(s, kSector, crc_);
    const std::uint32_t dataSignature = LoadLe32(s + S::kSignature);
    const std::uint64_t dataSequence =
        static_cast<std::uint64_t>(LoadLe32(s + S::kSequenceHigh)) << 32 | LoadLe32(s + S::kSequenceLow);
    if (dataSignature != Log::kDataSectorSignature || dataSequence != sequence_) {
      TraceLog(Msg::LogInvalidDataSector, {LogDecimal(dataSignature), LogDecimal(dataSequence), LogDecimal(sequence_)});
      return false;
    }
    StoreLe64(s, LoadLe64(d + D::kLeadingBytes));
    StoreLe32(s + kSector - S::kTrailingSize, LoadLe32(d + D::kTrailingBytes));
    consumer_.Consume(std::make_unique<FilledDataOperation>(fileOffset, std::move(sector)));
    return true;
  }

  File& file_;
  const std::uint64_t sequence_;
  std::uint64_t nextData_;
  std::uint32_t crc_;
  DataOperationConsumer& consumer_;
};

}  // namespace

std::shared_ptr<LogEntry> LogEntryReader::Read(File& file, std::uint64_t logOffset, std::uint32_t entryOffset) {
  namespace E = Log::Entry;
  TraceLog(Msg::LogReadingEntry, {LogDecimal(entryOffset)});
  const std::uint64_t start = logOffset + entryOffset;
  // Whole sectors the file holds from the entry on: the bound of what any
  // count in the entry may make us read or keep.
  const std::uint64_t size = file.GetSize();
  const bool wrapped = start < logOffset;
  const std::uint64_t room = !wrapped && start < size ? (size - start) / kSector : 0;
  if (room == 0) return Invalid(Msg::LogHeaderInvalid);

  SectorBuffer head;
  std::uint8_t* h = head.data();
  file.Read(start, kSector, h);
  if (LoadLe32(h + E::kSignature) != Log::kEntrySignature) return Invalid(Msg::LogHeaderInvalid);
  ValidLogEntry::Fields fields;
  fields.Offset = entryOffset;
  fields.Length = LoadLe32(h + E::kEntryLength);
  fields.Tail = LoadLe32(h + E::kTail);
  fields.SequenceNumber = LoadLe64(h + E::kSequenceNumber);
  fields.LogGuid = LoadGuid(h + E::kLogGuid);
  fields.FlushedFileOffset = LoadLe64(h + E::kFlushedFileOffset);
  fields.LastFileOffset = LoadLe64(h + E::kLastFileOffset);
  const std::uint32_t count = LoadLe32(h + E::kDescriptorCount);
  TraceLog(Msg::LogProcessingEntry, {LogDecimal(fields.Length), LogDecimal(fields.Tail),
                                     LogDecimal(fields.SequenceNumber), LogDecimal(count),
                                     LogGuidText(fields.LogGuid)});

  const std::uint32_t checksum = LoadLe32(h + E::kChecksum);
  StoreLe32(h + E::kChecksum, 0);
  std::uint32_t crc = Crc32c(h, kSector);

  // The count of further sectors rounds down, so that 127 to 253
  // descriptors get none and fail on their data or checksum. Entries were
  // always judged so; it stays.
  std::uint64_t further = 0;
  if (count > Log::kDescriptorsInFirstSector) {
    further = (count - Log::kDescriptorsInFirstSector) >> 7;
    TraceLog(Msg::LogAdditionalSectors, {LogDecimal(further)});
  }
  if (further + 1 > room) return Invalid(Msg::LogHeaderInvalid);

  // The further sectors are read twice, once here for the checksum and the
  // count of data sectors and once when their turn to be interpreted comes,
  // so that no count in the entry decides how much is held at a time.
  const std::uint32_t inFirst = std::min(count, Log::kDescriptorsInFirstSector);
  auto countInFurther = [&](std::uint64_t i) {
    const std::uint64_t before = inFirst + i * Log::kDescriptorsPerSector;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(count - before, Log::kDescriptorsPerSector));
  };
  // Each data descriptor takes one sector behind the descriptor sectors.
  std::uint64_t dataSectors = CountDataDescriptors({h + E::kFirstDescriptor, inFirst});
  SectorBuffer sector;
  for (std::uint64_t i = 0; i < further; ++i) {
    file.Read(start + (i + 1) * kSector, kSector, sector.data());
    crc = Crc32c(sector.data(), kSector, crc);
    dataSectors += CountDataDescriptors({sector.data(), countInFurther(i)});
  }
  if (further + 1 + dataSectors > room) return Invalid(Msg::LogHeaderInvalid);

  DataOperationList operations;
  AppendingOperationConsumer consumer(operations);
  DescriptorInterpreter interpreter(file, fields.SequenceNumber, start + (further + 1) * kSector, crc, consumer);
  if (!interpreter.Interpret({h + E::kFirstDescriptor, inFirst})) return Invalid(Msg::LogBadDescriptorsHead);
  for (std::uint64_t i = 0; i < further; ++i) {
    file.Read(start + (i + 1) * kSector, kSector, sector.data());
    if (!interpreter.Interpret({sector.data(), countInFurther(i)})) return Invalid(Msg::LogBadDescriptorsExtra);
  }
  if (interpreter.Crc() != checksum) return Invalid(Msg::LogBadChecksum);

  TraceLog(Msg::LogEntryFinished, {LogDecimal(operations.size())});
  return std::make_shared<ValidLogEntry>(fields, std::move(operations));
}

}  // namespace Vhdx
