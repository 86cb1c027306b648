// Any bytes opened as a container, read-only and writable, every sector
// read (all of a small disk; the first and last 16 MiB of a large one), and
// on the writable open a few writes that must read back as written, before
// and after a reopen. A thrown Common::Error is a fine answer; a crash, a
// hang, a sanitizer report or data that does not read back is a fault.
//
// An input that begins "vhdxfile" is the whole file. Any other input is a
// list of patches over one of two valid containers (its first byte picks
// which): a dynamic one, and a differencing one with partly present blocks
// and a live log; the patched file has its header, region table and log
// entry checksums made to match, so that the fuzzer reaches past them.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/memory_file.h"
#include "vhd/bitmap.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk_file.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/file/writeable_file.h"

namespace {

namespace Format = Vhdx::Format;
namespace Log = Format::Log;

constexpr std::uint64_t kVirtualSize = 4 << 20;
constexpr std::uint32_t kBlockSize = 1 << 20;
constexpr std::uint32_t kSector = 512;
constexpr std::uint64_t kReadLimit = 16 << 20;   // bytes read at each end of a large disk
constexpr std::uint32_t kMaxWriteBlock = 16 << 20;

std::unique_ptr<Common::MemoryFile> Load(const std::string& bytes) {
  auto memory = Common::MemoryFile::Create();
  memory->Write(bytes.data(), bytes.size());
  return memory;
}

std::string Bytes(Common::MemoryFile& memory) {
  const std::uint64_t size = memory.Size();
  return size == 0 ? std::string() : std::string(memory.GetData(), size);
}

// Takes every item, so that consumers of callers are exercised too.
class TakingConsumer : public Vhdx::SelectiveMetadataConsumer {
 public:
  void Consume(const Vhdx::MetadataDescriptor&, const std::uint8_t* data, std::uint32_t size) override {
    if (size) sum_ += data[0] + data[size - 1];
  }
  bool CanConsume(const Vhdx::MetadataDescriptor&) const override { return true; }

 private:
  unsigned sum_ = 0;
};

// A log entry at the start of the log that writes the 4096 bytes at
// `target` as they are.
void PutLogEntry(std::string& bytes, const Vhdx::HeaderInfo& header, std::uint64_t target) {
  std::string entry(2 * Log::kSectorSize, '\0');
  auto* e = reinterpret_cast<std::uint8_t*>(entry.data());
  Vhdx::StoreLe32(e + Log::Entry::kSignature, Log::kEntrySignature);
  Vhdx::StoreLe32(e + Log::Entry::kEntryLength, static_cast<std::uint32_t>(entry.size()));
  Vhdx::StoreLe64(e + Log::Entry::kSequenceNumber, 7);
  Vhdx::StoreLe32(e + Log::Entry::kDescriptorCount, 1);
  std::memcpy(e + Log::Entry::kLogGuid, &header.LogGuid, 16);
  Vhdx::StoreLe64(e + Log::Entry::kFlushedFileOffset, bytes.size());
  Vhdx::StoreLe64(e + Log::Entry::kLastFileOffset, bytes.size());
  std::uint8_t* d = e + Log::Entry::kFirstDescriptor;
  Vhdx::StoreLe32(d + Log::Descriptor::kSignature, Log::kDataDescriptorSignature);
  Vhdx::StoreLe64(d + Log::Descriptor::kFileOffset, target);
  Vhdx::StoreLe64(d + Log::Descriptor::kSequenceNumber, 7);
  std::uint8_t* data = e + Log::kSectorSize;
  std::memcpy(data, bytes.data() + target, Log::kSectorSize);
  std::memcpy(d + Log::Descriptor::kLeadingBytes, data, 8);
  std::memcpy(d + Log::Descriptor::kTrailingBytes, data + 4092, 4);
  Vhdx::StoreLe32(data + Log::DataSector::kSignature, Log::kDataSectorSignature);
  Vhdx::StoreLe32(data + Log::DataSector::kSequenceHigh, 0);
  Vhdx::StoreLe32(data + Log::DataSector::kSequenceLow, 7);
  bytes.replace(header.LogOffset, entry.size(), entry);
}

// The two valid containers the patches apply to.
std::string MakeTemplate(bool differencing) {
  auto memory = Common::MemoryFile::Create();
  {
    Vhdx::WriteableFile file(*memory);
    Vhdx::WriteDynamicContainer(file, {kVirtualSize, kSector});
    // Blocks of 1 MiB keep each run small: every write allocates a block.
    const auto region = Vhdx::GetRegionEntryById(Vhdx::RegionTableReader::Read(file), Format::kMetadataRegionGuid);
    Vhdx::MetadataModifierImpl modifier(std::make_unique<Vhdx::ThrowingExpandableFileRegion>(
        std::make_unique<Vhdx::WritableFileRegionImpl>(file, Vhdx::Area{region.FileOffset, region.Length})));
    std::uint8_t parameters[8];
    Vhdx::FileParameters{kBlockSize, differencing ? Vhdx::FileParameters::kHasParent : 0}.Store(parameters);
    modifier.Set(Vhdx::WellKnownItems::kFileParameters, parameters, sizeof parameters);
  }
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    auto disk = Vhdx::OpenWritableDiskFile(*memory, consumer);
    const std::string data(40 * kSector, '\x5a');
    disk->Write(3, 20, data.data());
    disk->Write(kBlockSize / kSector - 10, 40, data.data());
  }
  std::string bytes = Bytes(*memory);
  if (differencing) {  // a log that repairs the BAT's first sector
    auto file = Load(bytes);
    Vhdx::WriteableFile writeable(*file);
    Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(writeable);
    header.LogGuid = {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    Vhdx::HeaderWriter::Write(writeable, header);
    bytes = Bytes(*file);
    PutLogEntry(bytes, header, 0x300000);
  }
  return bytes;
}

void Seal(std::string& bytes, std::uint64_t offset, std::size_t size) {
  if (offset + size > bytes.size()) return;
  auto* p = reinterpret_cast<std::uint8_t*>(bytes.data()) + offset;
  Vhdx::StoreLe32(p + 4, 0);
  Vhdx::StoreLe32(p + 4, Vhdx::Crc32c(p, size));
}

// The checksum of the entry at the start of the log, over the sectors the
// reader takes for it.
void SealLogEntry(std::string& bytes) {
  const auto* h = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const std::uint64_t log = Vhdx::LoadLe64(h + Format::kHeaderOffsets[0] + Format::Header::kLogOffset);
  if (log > bytes.size() || bytes.size() - log < Log::kSectorSize) return;
  auto* e = reinterpret_cast<std::uint8_t*>(bytes.data()) + log;
  const std::uint32_t count = Vhdx::LoadLe32(e + Log::Entry::kDescriptorCount);
  const std::uint64_t extra = count > 126 ? (count - 126) >> 7 : 0;
  std::uint64_t sectors = 1 + extra;
  if (sectors * Log::kSectorSize > bytes.size() - log) return;
  std::uint64_t remaining = count;
  for (std::uint64_t s = 0; s <= extra && remaining; ++s) {
    const std::uint64_t first = s == 0 ? Log::Entry::kFirstDescriptor : 0;
    const std::uint64_t n = std::min<std::uint64_t>(remaining, s == 0 ? 126 : 128);
    for (std::uint64_t i = 0; i < n; ++i)
      sectors += Vhdx::LoadLe32(e + s * Log::kSectorSize + first + i * 32) == Log::kDataDescriptorSignature;
    remaining -= n;
  }
  if (sectors * Log::kSectorSize > bytes.size() - log) return;
  Vhdx::StoreLe32(e + Log::Entry::kChecksum, 0);
  Vhdx::StoreLe32(e + Log::Entry::kChecksum, Vhdx::Crc32c(e, sectors * Log::kSectorSize));
}

void ReadRange(Vhdx::DiskFile& disk, std::uint64_t first, std::uint64_t count, std::uint32_t sector) {
  constexpr std::uint64_t kRequest = 4096;
  std::vector<std::uint8_t> buffer;
  for (std::uint64_t at = first; at < first + count; at += kRequest) {
    const std::uint64_t n = std::min(kRequest, first + count - at);
    buffer.resize(n * sector);
    const auto wanted = Vhd::CreateBitmap(n, true);
    disk.Read(at, *wanted, buffer.data());
  }
}

void ReadEverything(Vhdx::DiskFile& disk) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint64_t sectors = parameters.VirtualSize / parameters.LogicalSectorSize;
  const std::uint64_t limit = kReadLimit / parameters.LogicalSectorSize;
  if (sectors <= 2 * limit) {
    ReadRange(disk, 0, sectors, parameters.LogicalSectorSize);
  } else {
    ReadRange(disk, 0, limit, parameters.LogicalSectorSize);
    ReadRange(disk, sectors - limit, limit, parameters.LogicalSectorSize);
  }
  TakingConsumer consumer;
  disk.EnumerateMetadata(consumer);
  disk.CountBlocks();
}

// Sectors written must read back as written, through this open and the next.
void ExpectWritten(Vhdx::DiskFile& disk, std::uint64_t sector, const std::string& data, std::uint32_t size) {
  const std::uint64_t count = data.size() / size;
  std::string back(data.size(), '\0');
  const auto wanted = Vhd::CreateBitmap(count, true);
  disk.Read(sector, *wanted, back.data());
  if (wanted->Find(true) != count || back != data) __builtin_trap();
}

void Exercise(const std::string& bytes) {
  {
    auto memory = Load(bytes);
    try {
      TakingConsumer consumer;
      auto disk = Vhdx::OpenReadOnlyDiskFile(*memory, consumer);
      ReadEverything(*disk);
    } catch (const Common::Error&) {
    }
    if (Bytes(*memory) != bytes) __builtin_trap();  // read-only stays read-only
  }

  auto memory = Load(bytes);
  std::map<std::uint64_t, std::string> written;  // sector -> its bytes, latest write
  std::uint32_t size = 0;
  try {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    auto disk = Vhdx::OpenWritableDiskFile(*memory, consumer);
    const Vhdx::DiskParameters parameters = disk->GetDiskParameters();
    size = parameters.LogicalSectorSize;
    const std::uint64_t sectors = parameters.VirtualSize / size;
    if (disk->GetLayout().BlockSize > kMaxWriteBlock || sectors == 0) return;
    const std::uint64_t places[] = {0, sectors / 2 - std::min<std::uint64_t>(sectors / 2, 3), sectors - 1};
    for (const std::uint64_t at : places) {
      const std::uint64_t count = std::min<std::uint64_t>(7, sectors - at);
      std::string data(count * size, '\0');
      for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(at + i * 13);
      try {
        disk->Write(at, count, data.data());
      } catch (const Common::Error&) {
        continue;
      }
      ExpectWritten(*disk, at, data, size);
      for (std::uint64_t i = 0; i < count; ++i) written[at + i] = data.substr(i * size, size);
    }
  } catch (const Common::Error&) {
    return;
  }
  if (written.empty()) return;
  // What was written opens again and reads back.
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  auto reopened = Vhdx::OpenReadOnlyDiskFile(*memory, consumer);
  for (const auto& [at, data] : written) ExpectWritten(*reopened, at, data, size);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string templates[2] = {MakeTemplate(false), MakeTemplate(true)};
  const std::string input(reinterpret_cast<const char*>(data), size);
  if (input.rfind("vhdxfile", 0) == 0) {
    Exercise(input);
    return 0;
  }
  if (input.empty()) return 0;
  std::string bytes = templates[input[0] & 1];
  // Patches: 4-byte offset, 1-byte length, the bytes.
  for (std::size_t at = 1; at + 5 <= input.size();) {
    const std::uint64_t offset = Vhdx::LoadLe32(reinterpret_cast<const std::uint8_t*>(input.data()) + at) % bytes.size();
    const std::size_t length = std::min<std::size_t>(static_cast<std::uint8_t>(input[at + 4]), input.size() - at - 5);
    bytes.replace(offset, std::min<std::size_t>(length, bytes.size() - offset), input, at + 5, length);
    at += 5 + length;
  }
  for (const std::uint64_t offset : Format::kHeaderOffsets) Seal(bytes, offset, Format::kHeaderSize);
  for (const std::uint64_t offset : Format::kRegionTableOffsets) Seal(bytes, offset, Format::kRegionTableSize);
  SealLogEntry(bytes);
  Exercise(bytes);
  return 0;
}
