// Files for the container tests: a host file object whose transfers can be
// cut short or refused, a Vhdx::File that logs the changes reaching it, and
// builders of header images.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/memory_file.h"
#include "vhdx/file/area.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/file/file_decorator.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_image.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/file/writeable_file.h"

namespace Vhdx {
inline void PrintTo(const Area& area, std::ostream* out) { *out << "{" << area.Offset << ", " << area.Size << "}"; }
}  // namespace Vhdx

namespace VhdxTest {

// What `fn` throws; empty if nothing.
template <class Fn>
Common::Error Raised(Fn fn) {
  try {
    fn();
  } catch (const Common::Error& error) {
    return error;
  }
  return {};
}

template <class Fn>
std::uint32_t CodeOf(Fn fn) { return Raised(fn).Code(); }

// Sectors of 512 bytes that differ from one another and from seed to seed.
inline std::string Pattern(std::uint64_t sectors, std::uint8_t seed) {
  std::string data(sectors * 512, '\0');
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(seed + i / 512 + i % 241);
  return data;
}

// A rio_file in memory that moves at most `Step` bytes a call, takes no
// byte at or beyond `WriteLimit` (a full medium: 0 bytes and no error), and
// logs the size of every write.
class ScriptedFile : public rio_file {
 public:
  std::size_t Step = SIZE_MAX;
  std::uint64_t WriteLimit = UINT64_MAX;
  std::vector<std::size_t> Writes;
  std::unique_ptr<Common::MemoryFile> Store = Common::MemoryFile::Create();

  std::size_t Read(void* buffer, std::size_t size) override { return Store->Read(buffer, std::min(size, Step)); }
  std::size_t Write(const void* buffer, std::size_t size) override {
    Writes.push_back(size);
    const auto at = static_cast<std::uint64_t>(Store->SeekCurrent(0));
    if (at >= WriteLimit) return 0;
    return Store->Write(buffer, std::min({size, Step, static_cast<std::size_t>(WriteLimit - at)}));
  }
  std::int64_t Seek(std::int64_t position) override { return Store->Seek(position); }
  std::int64_t SeekCurrent(std::int64_t delta) override { return Store->SeekCurrent(delta); }
  std::int64_t SeekEnd(std::int64_t delta) override { return Store->SeekEnd(delta); }
  void Truncate(std::uint64_t size) override { Store->Truncate(size); }
  void Fail(const Common::Error& error) { file_object::Fail(error); }

  // Cut short at the end of the file.
  std::string Bytes(std::uint64_t offset, std::size_t size) const {
    const std::uint64_t length = Store->GetData() ? Store->Size() : 0;
    if (offset >= length) return {};
    return std::string(Store->GetData() + offset, std::min<std::uint64_t>(size, length - offset));
  }
  void Load(const std::string& bytes) {
    Store->Truncate(0);
    Store->Seek(0);
    Store->Write(bytes.data(), bytes.size());
  }
};

// Logs each change that passes: "W offset size", "Z offset size", "E size", "F".
class LoggingFile : public Vhdx::FileDecorator {
 public:
  using FileDecorator::FileDecorator;
  std::vector<std::string> Log;

  void Write(std::uint64_t offset, std::size_t size, const void* buffer) override {
    Log.push_back("W " + std::to_string(offset) + " " + std::to_string(size));
    FileDecorator::Write(offset, size, buffer);
  }
  void WriteZero(std::uint64_t offset, std::uint64_t size) override {
    Log.push_back("Z " + std::to_string(offset) + " " + std::to_string(size));
    FileDecorator::WriteZero(offset, size);
  }
  void Expand(std::uint64_t size) override {
    Log.push_back("E " + std::to_string(size));
    FileDecorator::Expand(size);
  }
  void Flush() override {
    Log.push_back("F");
    FileDecorator::Flush();
  }

};

// A container file in memory, and a view of it that logs the changes.
class MemoryFileTest : public ::testing::Test {
 protected:
  ScriptedFile raw;
  Vhdx::WriteableFile file{raw};
  LoggingFile logged{file};
};

inline Common::Guid TestGuid(std::uint8_t seed) {
  Common::Guid g{0x11111111u * seed, static_cast<std::uint16_t>(0x2222 * seed),
                 static_cast<std::uint16_t>(0x3333 * seed), {}};
  for (std::uint8_t i = 0; i < 8; ++i) g.Data4[i] = static_cast<std::uint8_t>(seed + i);
  return g;
}

inline Vhdx::HeaderInfo TestHeaderInfo(std::uint8_t seed) {
  return {TestGuid(seed), TestGuid(static_cast<std::uint8_t>(seed + 1)), {}, 0, 1, 0x100000, 0x100000};
}

// Stores the CRC-32C of the `size` bytes at `offset` in their checksum
// field, which is at byte 4 of headers and region tables alike.
inline void Reseal(std::string& bytes, std::size_t offset, std::size_t size) {
  auto* p = reinterpret_cast<std::uint8_t*>(bytes.data()) + offset;
  Vhdx::StoreLe32(p + 4, 0);
  Vhdx::StoreLe32(p + 4, Vhdx::Crc32c(p, size));
}

inline void PutHeader(std::string& bytes, std::size_t index, const Vhdx::HeaderInfo& info,
                      std::uint64_t sequence) {
  const Vhdx::HeaderImage image = Vhdx::EncodeHeaderImage(info);
  const auto offset = Vhdx::Format::kHeaderOffsets[index];
  std::memcpy(bytes.data() + offset, image.data(), image.size());
  Vhdx::StoreLe64(reinterpret_cast<std::uint8_t*>(bytes.data()) + offset + 8, sequence);
  Reseal(bytes, offset, image.size());
}

// The first megabyte, all zero but the file identifier.
inline std::string EmptyFirstMegabyte() {
  std::string bytes(Vhdx::Format::kMiB, '\0');
  std::memcpy(bytes.data(), "vhdxfile", 8);
  return bytes;
}

// A descriptor as a writer lays it down: zeroing when `Data` is empty,
// otherwise one sector of data. Sequence numbers other than 0 replace the
// entry's in the descriptor or the data sector.
struct LogChange {
  std::uint64_t FileOffset;
  std::string Data;
  std::uint64_t ZeroLength = 0;
  std::uint64_t DescriptorSequence = 0, DataSequence = 0;
};

// A log entry as a writer lays it down, in 4096-byte sectors: header and
// descriptor sectors, then one data sector per data descriptor, the
// checksum over them all.
struct LogEntry {
  static constexpr std::size_t kSector = 4096;
  std::uint64_t Sequence;
  std::uint32_t Tail;
  std::vector<LogChange> Changes;
  Common::Guid Guid = TestGuid(7);
  std::uint64_t FlushedFileOffset = 0;
  std::uint64_t LastFileOffset = 0;

  std::string Bytes() const {
    const auto at = [](std::string& bytes, std::size_t offset) {
      return reinterpret_cast<std::uint8_t*>(bytes.data()) + offset;
    };
    const std::size_t count = Changes.size();
    const std::size_t descriptorSectors = count <= 126 ? 1 : 1 + (count - 126 + 127) / 128;
    std::string descriptors(descriptorSectors * kSector, '\0'), data;
    for (std::size_t i = 0; i < count; ++i) {
      const LogChange& c = Changes[i];
      std::uint8_t* d = at(descriptors, i < 126 ? 64 + 32 * i : kSector * (1 + (i - 126) / 128) + 32 * ((i - 126) % 128));
      Vhdx::StoreLe64(d + 16, c.FileOffset);
      Vhdx::StoreLe64(d + 24, c.DescriptorSequence ? c.DescriptorSequence : Sequence);
      if (c.Data.empty()) {
        std::memcpy(d, "zero", 4);
        Vhdx::StoreLe64(d + 8, c.ZeroLength);
        continue;
      }
      std::memcpy(d, "desc", 4);
      std::string sector = c.Data;
      std::memcpy(d + 4, sector.data() + 4092, 4);
      std::memcpy(d + 8, sector.data(), 8);
      std::memcpy(sector.data(), "data", 4);
      const std::uint64_t dataSequence = c.DataSequence ? c.DataSequence : Sequence;
      Vhdx::StoreLe32(at(sector, 4), static_cast<std::uint32_t>(dataSequence >> 32));
      Vhdx::StoreLe32(at(sector, 4092), static_cast<std::uint32_t>(dataSequence));
      data += sector;
    }
    std::string bytes = descriptors + data;
    std::uint8_t* h = at(bytes, 0);
    std::memcpy(h, "loge", 4);
    Vhdx::StoreLe32(h + 8, static_cast<std::uint32_t>(bytes.size()));
    Vhdx::StoreLe32(h + 12, Tail);
    Vhdx::StoreLe64(h + 16, Sequence);
    Vhdx::StoreLe32(h + 24, static_cast<std::uint32_t>(count));
    Vhdx::StoreGuid(h + 32, Guid);
    Vhdx::StoreLe64(h + 48, FlushedFileOffset);
    Vhdx::StoreLe64(h + 56, LastFileOffset);
    Vhdx::StoreLe32(h + 4, Vhdx::Crc32c(bytes.data(), bytes.size()));
    return bytes;
  }
};

}  // namespace VhdxTest
