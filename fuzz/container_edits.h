// Container edits: the input language of the container harnesses, a list of
// edits over a valid base container, so that each input is a small, pointed
// change rather than a whole file the fuzzer has to keep valid by chance.
// Only the harnesses in fuzz/ use it.
//
// An input is a selector byte, then records, each one of:
//   0 raw    u32 offset, u8 length, the bytes   (offset modulo the file size)
//   1 field  u16 field, u8 how, u64 operand      (a named field of the base)
//   2 size   u32 new file size                   (modulo twice the base size)
//   3 copy   u32 from, u32 to, u16 length        (offsets modulo the file size)
// The selector's low two bits are the harness's to pick a base. Bits 2, 3
// and 4 leave the headers, the region tables and the first log entry with
// the checksums the edits gave them; otherwise they are made to match, so
// that the fuzzer reaches the parsers behind them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "overlay_file.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace Fuzz {

namespace Format = Vhdx::Format;

// A field of the base container that field records name by index.
struct Field {
  std::string Name;
  std::uint64_t Offset;
  unsigned Width;  // 1 to 8 bytes, little-endian
};

enum EditKind : std::uint8_t { kRawEdit = 0, kFieldEdit = 1, kSizeEdit = 2, kCopyEdit = 3 };
enum FieldHow : std::uint8_t { kSet = 0, kAdd = 1, kXor = 2, kMagic = 3, kFromField = 4, kSubtract = 5 };
inline constexpr unsigned kHowCount = 6;

inline constexpr std::uint8_t kKeepHeaderChecksums = 4;
inline constexpr std::uint8_t kKeepRegionChecksums = 8;
inline constexpr std::uint8_t kKeepLogChecksum = 16;

// Bounds each input's work: enough records for any pointed change.
inline constexpr std::size_t kMaxRecords = 64;

// A valid container the edits apply to, and the fields they can name in it.
struct Base {
  std::string Image;
  std::vector<Field> Fields;
};

// An input that begins "vhdxfile" is a whole file, not a list of edits.
inline bool IsWholeImage(const std::uint8_t* data, std::size_t size) {
  return size >= 8 && std::memcmp(data, Format::kFileIdentifierSignature, 8) == 0;
}

// The fields of the headers, region tables, metadata table and items, the
// first BAT entries, the sector bitmap and the first log entry, where the
// valid container `image` has them.
inline std::vector<Field> FindFields(const std::string& image) {
  std::vector<Field> fields;
  const auto* b = reinterpret_cast<const std::uint8_t*>(image.data());
  const auto add = [&](const std::string& name, std::uint64_t offset, unsigned width) {
    if (offset + width <= image.size()) fields.push_back({name, offset, width});
  };
  const auto addGuid = [&](const std::string& name, std::uint64_t offset) {
    add(name + ".lo", offset, 8);
    add(name + ".hi", offset + 8, 8);
  };
  add("identifier.signature", Format::kFileIdentifierOffset, 8);
  for (std::size_t h = 0; h < Format::kHeaderCount; ++h) {
    const std::string p = "header" + std::to_string(h) + ".";
    const std::uint64_t at = Format::kHeaderOffsets[h];
    add(p + "signature", at + Format::Header::kSignature, 4);
    add(p + "checksum", at + Format::Header::kChecksum, 4);
    add(p + "sequence", at + Format::Header::kSequenceNumber, 8);
    addGuid(p + "file_write_guid", at + Format::Header::kFileWriteGuid);
    addGuid(p + "data_write_guid", at + Format::Header::kDataWriteGuid);
    addGuid(p + "log_guid", at + Format::Header::kLogGuid);
    add(p + "log_version", at + Format::Header::kLogVersion, 2);
    add(p + "version", at + Format::Header::kVersion, 2);
    add(p + "log_length", at + Format::Header::kLogLength, 4);
    add(p + "log_offset", at + Format::Header::kLogOffset, 8);
  }
  std::uint64_t metadata = 0, bat = 0, batLength = 0;
  for (std::size_t t = 0; t < Format::kRegionTableCount; ++t) {
    const std::string p = "regions" + std::to_string(t) + ".";
    const std::uint64_t at = Format::kRegionTableOffsets[t];
    add(p + "signature", at + Format::RegionTable::kSignature, 4);
    add(p + "checksum", at + Format::RegionTable::kChecksum, 4);
    add(p + "count", at + Format::RegionTable::kEntryCount, 4);
    add(p + "reserved", at + Format::RegionTable::kReserved, 4);
    const std::uint32_t count = Vhdx::LoadLe32(b + at + Format::RegionTable::kEntryCount);
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(count + 1, 4); ++i) {
      const std::uint64_t e = at + Format::RegionTable::kFirstEntry + i * Format::RegionEntry::kSize;
      const std::string q = p + "entry" + std::to_string(i) + ".";
      addGuid(q + "guid", e + Format::RegionEntry::kGuid);
      add(q + "offset", e + Format::RegionEntry::kFileOffset, 8);
      add(q + "length", e + Format::RegionEntry::kLength, 4);
      add(q + "required", e + Format::RegionEntry::kRequired, 4);
      if (t != 0 || i >= count) continue;
      const Common::Guid id = Vhdx::LoadGuid(b + e + Format::RegionEntry::kGuid);
      const std::uint64_t offset = Vhdx::LoadLe64(b + e + Format::RegionEntry::kFileOffset);
      if (id == Format::kMetadataRegionGuid) metadata = offset;
      if (id == Format::kBatRegionGuid) {
        bat = offset;
        batLength = Vhdx::LoadLe32(b + e + Format::RegionEntry::kLength);
      }
    }
  }
  std::uint64_t blockSize = 0, sectorSize = 0;
  if (metadata && metadata + Format::kMetadataTableAreaSize <= image.size()) {
    add("metadata.signature", metadata + Format::MetadataTable::kSignature, 8);
    add("metadata.count", metadata + Format::MetadataTable::kEntryCount, 2);
    const std::uint16_t count = Vhdx::LoadLe16(b + metadata + Format::MetadataTable::kEntryCount);
    for (std::uint32_t i = 0; i < std::min<std::uint32_t>(count + 1, 8); ++i) {
      const std::uint64_t e = metadata + Format::MetadataTable::kFirstEntry + i * Format::MetadataEntry::kSize;
      const std::string q = "metadata.entry" + std::to_string(i) + ".";
      addGuid(q + "id", e + Format::MetadataEntry::kItemId);
      add(q + "offset", e + Format::MetadataEntry::kOffset, 4);
      add(q + "length", e + Format::MetadataEntry::kLength, 4);
      add(q + "flags", e + Format::MetadataEntry::kFlags, 4);
      add(q + "reserved", e + Format::MetadataEntry::kReserved, 4);
      if (i >= count) continue;
      const Common::Guid id = Vhdx::LoadGuid(b + e + Format::MetadataEntry::kItemId);
      const std::uint64_t item = metadata + Vhdx::LoadLe32(b + e + Format::MetadataEntry::kOffset);
      if (item + 8 > image.size()) continue;
      if (id == Format::kFileParametersItem) {
        add("item.block_size", item, 4);
        add("item.file_flags", item + 4, 4);
        blockSize = Vhdx::LoadLe32(b + item);
      } else if (id == Format::kVirtualDiskSizeItem) {
        add("item.virtual_size", item, 8);
      } else if (id == Format::kLogicalSectorSizeItem) {
        add("item.logical_sector_size", item, 4);
        sectorSize = Vhdx::LoadLe32(b + item);
      } else if (id == Format::kPhysicalSectorSizeItem) {
        add("item.physical_sector_size", item, 4);
      } else if (id == Format::kPage83DataItem) {
        addGuid("item.page83", item);
      } else if (id == Format::kParentLocatorItem) {
        addGuid("item.locator.type", item + Format::ParentLocator::kLocatorType);
        add("item.locator.count", item + Format::ParentLocator::kKeyValueCount, 2);
        for (unsigned k = 0; k < 3; ++k) {
          const std::uint64_t l = item + Format::ParentLocator::kHeaderSize + k * Format::ParentLocatorEntry::kSize;
          const std::string r = "item.locator.entry" + std::to_string(k) + ".";
          add(r + "key_offset", l + Format::ParentLocatorEntry::kKeyOffset, 4);
          add(r + "value_offset", l + Format::ParentLocatorEntry::kValueOffset, 4);
          add(r + "key_length", l + Format::ParentLocatorEntry::kKeyLength, 2);
          add(r + "value_length", l + Format::ParentLocatorEntry::kValueLength, 2);
        }
      }
    }
  }
  if (bat) {
    for (std::uint64_t i = 0; i < std::min<std::uint64_t>(batLength / 8, 8); ++i)
      add("bat" + std::to_string(i), bat + 8 * i, 8);
    // The first chunk's sector bitmap entry stands behind its payload entries.
    if (blockSize && sectorSize) {
      const std::uint64_t ratio = (std::uint64_t{1} << 23) * sectorSize / blockSize;
      const std::uint64_t entry = bat + 8 * ratio;
      if (8 * ratio + 8 <= batLength && entry + 8 <= image.size()) {
        add("bat.bitmap0", entry, 8);
        const std::uint64_t raw = Vhdx::LoadLe64(b + entry);
        const std::uint64_t bitmap = raw >> 20 << 20;
        const std::uint64_t perBlock = blockSize / sectorSize / 8;
        if ((raw & 7) == 6) {
          add("bitmap.block0", bitmap, 8);
          add("bitmap.block0_end", bitmap + perBlock - 8, 8);
          add("bitmap.block1", bitmap + perBlock, 8);
        }
      }
    }
  }
  const std::uint64_t log = Vhdx::LoadLe64(b + Format::kHeaderOffsets[0] + Format::Header::kLogOffset);
  if (log && log + 2 * Format::Log::kSectorSize <= image.size()) {
    namespace E = Format::Log::Entry;
    add("log.signature", log + E::kSignature, 4);
    add("log.checksum", log + E::kChecksum, 4);
    add("log.length", log + E::kEntryLength, 4);
    add("log.tail", log + E::kTail, 4);
    add("log.sequence", log + E::kSequenceNumber, 8);
    add("log.count", log + E::kDescriptorCount, 4);
    addGuid("log.guid", log + E::kLogGuid);
    add("log.flushed", log + E::kFlushedFileOffset, 8);
    add("log.last", log + E::kLastFileOffset, 8);
    for (unsigned d = 0; d < 2; ++d) {
      namespace D = Format::Log::Descriptor;
      const std::uint64_t at = log + E::kFirstDescriptor + d * D::kSize;
      const std::string q = "log.desc" + std::to_string(d) + ".";
      add(q + "signature", at + D::kSignature, 4);
      add(q + "trailing", at + D::kTrailingBytes, 4);
      add(q + "leading", at + D::kLeadingBytes, 8);
      add(q + "offset", at + D::kFileOffset, 8);
      add(q + "sequence", at + D::kSequenceNumber, 8);
    }
    const std::uint64_t data = log + Format::Log::kSectorSize;
    add("log.data0.signature", data + Format::Log::DataSector::kSignature, 4);
    add("log.data0.sequence_high", data + Format::Log::DataSector::kSequenceHigh, 4);
    add("log.data0.sequence_low", data + Format::Log::DataSector::kSequenceLow, 4);
  }
  return fields;
}

namespace Detail {

class RecordReader {
 public:
  RecordReader(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}
  bool Has(std::size_t n) const { return left_ >= n; }
  std::size_t Left() const { return left_; }
  const std::uint8_t* Here() const { return data_; }
  void Skip(std::size_t n) {
    data_ += n;
    left_ -= n;
  }
  std::uint64_t Le(std::size_t n) {
    std::uint64_t v = 0;
    for (std::size_t i = 0; i < n; ++i) v |= std::uint64_t{data_[i]} << (8 * i);
    Skip(n);
    return v;
  }

 private:
  const std::uint8_t* data_;
  std::size_t left_;
};

// Record sizes after the kind byte; a raw record adds its bytes.
inline constexpr std::size_t kRecordSize[4] = {5, 11, 4, 10};

inline std::uint64_t LoadField(const OverlayFile& file, const Field& field) {
  std::uint8_t bytes[8] = {};
  file.Get(field.Offset, bytes, field.Width);
  return Vhdx::LoadLe64(bytes);
}

inline void StoreField(OverlayFile& file, const Field& field, std::uint64_t value) {
  std::uint8_t bytes[8];
  Vhdx::StoreLe64(bytes, value);
  file.Put(field.Offset, bytes, field.Width);
}

// Values that sit on the edges of what the parsers check.
inline std::uint64_t Magic(std::uint64_t pick, std::uint64_t fileSize) {
  const std::uint64_t values[] = {0,
                                  1,
                                  2,
                                  4096,
                                  0x10000,
                                  Format::kMiB,
                                  2 * Format::kMiB,
                                  fileSize,
                                  fileSize - Format::kMiB,
                                  fileSize + Format::kMiB,
                                  0x7fffffff,
                                  0x80000000,
                                  0xffffffff,
                                  std::uint64_t{1} << 32,
                                  std::uint64_t{1} << 44,
                                  ~std::uint64_t{0},
                                  std::uint64_t{1} << 63};
  return values[pick % std::size(values)];
}

}  // namespace Detail

// Stores the CRC-32C of the `size` bytes at `offset` in their checksum
// field, at byte 4 of headers and region tables alike.
inline void Seal(OverlayFile& file, std::uint64_t offset, std::size_t size) {
  if (offset + size > file.Size()) return;
  std::vector<std::uint8_t> bytes(size);
  file.Get(offset, bytes.data(), size);
  Vhdx::StoreLe32(bytes.data() + 4, 0);
  std::uint8_t checksum[4];
  Vhdx::StoreLe32(checksum, Vhdx::Crc32c(bytes.data(), size));
  file.Put(offset + 4, checksum, 4);
}

namespace Detail {

// A structure no edit touched keeps the valid checksum of the base.
inline void SealAt(OverlayFile& file, std::uint64_t offset, std::size_t size) {
  if (file.Touched(offset, size)) Seal(file, offset, size);
}

// The checksum of the entry at the start of the log, over the sectors the
// reader takes for it: the descriptor sectors and one data sector for each
// data descriptor.
inline void SealLogEntry(OverlayFile& file) {
  namespace Log = Format::Log;
  std::uint8_t header[Format::kHeaderSize];
  if (Format::kHeaderOffsets[0] + sizeof header > file.Size()) return;
  file.Get(Format::kHeaderOffsets[0], header, sizeof header);
  const std::uint64_t log = Vhdx::LoadLe64(header + Format::Header::kLogOffset);
  const std::uint64_t length = Vhdx::LoadLe32(header + Format::Header::kLogLength);
  if (log > file.Size() || file.Size() - log < Log::kSectorSize) return;
  // Entries longer than the templates' logs are not worth sealing.
  const std::uint64_t room = std::min({file.Size() - log, length, Format::kMiB});
  if (!file.Touched(log, room)) return;
  std::uint8_t first[Log::kSectorSize];
  file.Get(log, first, sizeof first);
  const std::uint64_t count = Vhdx::LoadLe32(first + Log::Entry::kDescriptorCount);
  const std::uint64_t extra = count > Log::kDescriptorsInFirstSector
                                  ? (count - Log::kDescriptorsInFirstSector + Log::kDescriptorsPerSector - 1) /
                                        Log::kDescriptorsPerSector
                                  : 0;
  std::uint64_t sectors = 1 + extra;
  if (sectors * Log::kSectorSize > room) return;
  std::vector<std::uint8_t> entry(sectors * Log::kSectorSize);
  file.Get(log, entry.data(), entry.size());
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t at = i < Log::kDescriptorsInFirstSector
                                 ? Log::Entry::kFirstDescriptor + i * Log::Descriptor::kSize
                                 : Log::kSectorSize + (i - Log::kDescriptorsInFirstSector) * Log::Descriptor::kSize;
    sectors += Vhdx::LoadLe32(entry.data() + at) == Log::kDataDescriptorSignature;
  }
  if (sectors * Log::kSectorSize > room) return;
  entry.resize(sectors * Log::kSectorSize);
  file.Get(log, entry.data(), entry.size());
  Vhdx::StoreLe32(entry.data() + Log::Entry::kChecksum, 0);
  std::uint8_t checksum[4];
  Vhdx::StoreLe32(checksum, Vhdx::Crc32c(entry.data(), entry.size()));
  file.Put(log + Log::Entry::kChecksum, checksum, 4);
}

}  // namespace Detail

// Applies the records of an input (the selector byte already taken) to
// `file`, then makes the checksums match unless the selector says not to.
inline void ApplyEdits(OverlayFile& file, const std::vector<Field>& fields, std::uint8_t selector,
                       const std::uint8_t* data, std::size_t size) {
  const std::uint64_t baseSize = file.Size();
  Detail::RecordReader in(data, size);
  for (std::size_t records = 0; records < kMaxRecords && in.Has(1); ++records) {
    const auto kind = static_cast<EditKind>(in.Le(1) % 4);
    if (!in.Has(Detail::kRecordSize[kind])) break;
    const std::uint64_t fileSize = std::max<std::uint64_t>(file.Size(), 1);
    switch (kind) {
      case kRawEdit: {
        const std::uint64_t offset = in.Le(4) % fileSize;
        const std::size_t length = std::min<std::size_t>(in.Le(1), in.Left());
        file.Put(offset, in.Here(), length);
        in.Skip(length);
        break;
      }
      case kFieldEdit: {
        const std::size_t index = in.Le(2);
        const unsigned how = in.Le(1) % kHowCount;
        const std::uint64_t operand = in.Le(8);
        if (fields.empty()) break;
        const Field& field = fields[index % fields.size()];
        const std::uint64_t old = Detail::LoadField(file, field);
        std::uint64_t value = operand;
        if (how == kAdd) value = old + operand;
        if (how == kXor) value = old ^ operand;
        if (how == kMagic) value = Detail::Magic(operand, file.Size());
        if (how == kFromField) value = Detail::LoadField(file, fields[operand % fields.size()]);
        if (how == kSubtract) value = old - operand;
        Detail::StoreField(file, field, value);
        break;
      }
      case kSizeEdit:
        file.Truncate(in.Le(4) % (2 * baseSize + 1));
        break;
      case kCopyEdit: {
        const std::uint64_t from = in.Le(4) % fileSize;
        const std::uint64_t to = in.Le(4) % fileSize;
        const std::uint64_t length = std::min<std::uint64_t>(in.Le(2), file.Size() - from);
        std::vector<char> bytes(length);
        file.Get(from, bytes.data(), length);
        file.Put(to, bytes.data(), length);
        break;
      }
    }
  }
  if (!(selector & kKeepHeaderChecksums))
    for (const std::uint64_t offset : Format::kHeaderOffsets) Detail::SealAt(file, offset, Format::kHeaderSize);
  if (!(selector & kKeepRegionChecksums))
    for (const std::uint64_t offset : Format::kRegionTableOffsets)
      Detail::SealAt(file, offset, Format::kRegionTableSize);
  if (!(selector & kKeepLogChecksum)) Detail::SealLogEntry(file);
}

// Writes inputs in the language above, naming fields as FindFields does:
// what the harnesses' seed makers use.
class EditWriter {
 public:
  EditWriter(const std::vector<Field>& fields, std::uint8_t selector) : fields_(fields), bytes_(1, selector) {}

  EditWriter& Raw(std::uint32_t offset, const std::string& bytes) {
    Put(kRawEdit, 1);
    Put(offset, 4);
    Put(bytes.size(), 1);
    bytes_ += bytes.substr(0, 255);
    return *this;
  }
  EditWriter& Edit(const std::string& name, FieldHow how, std::uint64_t operand) {
    Put(kFieldEdit, 1);
    Put(IndexOf(name), 2);
    Put(how, 1);
    Put(operand, 8);
    return *this;
  }
  EditWriter& Set(const std::string& name, std::uint64_t value) { return Edit(name, kSet, value); }
  EditWriter& From(const std::string& name, const std::string& source) { return Edit(name, kFromField, IndexOf(source)); }
  EditWriter& Resize(std::uint32_t size) {
    Put(kSizeEdit, 1);
    Put(size, 4);
    return *this;
  }
  EditWriter& Copy(std::uint32_t from, std::uint32_t to, std::uint16_t length) {
    Put(kCopyEdit, 1);
    Put(from, 4);
    Put(to, 4);
    Put(length, 2);
    return *this;
  }
  const std::string& Bytes() const { return bytes_; }

  std::size_t IndexOf(const std::string& name) const {
    for (std::size_t i = 0; i < fields_.size(); ++i)
      if (fields_[i].Name == name) return i;
    std::fprintf(stderr, "no field %s in this base\n", name.c_str());
    std::abort();
  }

 private:
  void Put(std::uint64_t value, std::size_t width) {
    for (std::size_t i = 0; i < width; ++i) bytes_ += static_cast<char>(value >> (8 * i));
  }

  const std::vector<Field>& fields_;
  std::string bytes_;
};

// A harness's seed corpus: named inputs in the language above.
using Seeds = std::vector<std::pair<std::string, std::string>>;

// The first thing LLVMFuzzerInitialize does: given
// VELLUMRIG_MAKE_SEEDS=<folder>, writes the seeds `make` returns to the
// folder and exits. The seeds in fuzz/corpus are made this way.
template <class Make>
void MakeSeedsIfAsked(Make make) {
  const char* folder = std::getenv("VELLUMRIG_MAKE_SEEDS");
  if (!folder) return;
  const Seeds seeds = make();
  for (const auto& [name, bytes] : seeds) {
    std::ofstream out(std::string(folder) + "/" + name, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) {
      std::fprintf(stderr, "cannot write %s/%s\n", folder, name.c_str());
      std::exit(1);
    }
  }
  std::fprintf(stderr, "%zu seeds written to %s\n", seeds.size(), folder);
  std::exit(0);
}

// The mutator behind LLVMFuzzerCustomMutator: libFuzzer's own byte
// mutations for whole files and half the time for edits, otherwise a field
// record added or an existing one aimed at another field, operation or
// value. Byte mutations alone shift records
// and mostly produce inputs the first check refuses; these keep the edits
// well formed, so coverage keeps growing after the easy paths are found.
inline std::size_t MutateEdits(std::uint8_t* data, std::size_t size, std::size_t maxSize, unsigned seed,
                               std::size_t fieldCount) {
  std::minstd_rand random(seed);
  if (size == 0 || fieldCount == 0 || IsWholeImage(data, size) || random() % 2)
    return LLVMFuzzerMutate(data, size, maxSize);
  const auto operand = [&]() -> std::uint64_t {
    switch (random() % 4) {
      case 0: return random() % 17;                                              // a magic pick or a small step
      case 1: return -static_cast<std::uint64_t>(random() % 8 + 1);              // a small step down
      case 2: return std::uint64_t{1} << (random() % 64);                        // one bit
      default: return (std::uint64_t{random()} << 33) ^ random();
    }
  };
  std::vector<std::size_t> fieldRecords;
  Detail::RecordReader in(data + 1, size - 1);
  while (in.Has(1)) {
    const std::size_t at = size - in.Left();
    const auto kind = static_cast<EditKind>(in.Le(1) % 4);
    if (!in.Has(Detail::kRecordSize[kind])) break;
    if (kind == kFieldEdit) fieldRecords.push_back(at);
    const std::size_t skip = Detail::kRecordSize[kind] + (kind == kRawEdit ? std::min<std::size_t>(in.Here()[4], in.Left() - 5) : 0);
    in.Skip(skip);
  }
  std::size_t at;
  if (!fieldRecords.empty() && random() % 2) {
    at = fieldRecords[random() % fieldRecords.size()];
  } else {
    if (size + 12 > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
    at = size;
    size += 12;
  }
  data[at] = kFieldEdit;
  const std::uint64_t index = random() % fieldCount;
  data[at + 1] = static_cast<std::uint8_t>(index);
  data[at + 2] = static_cast<std::uint8_t>(index >> 8);
  data[at + 3] = static_cast<std::uint8_t>(random() % kHowCount);
  Vhdx::StoreLe64(data + at + 4, operand());
  return size;
}

}  // namespace Fuzz
