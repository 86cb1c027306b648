// Log entries as a writer lays them down, with the test GUIDs they carry:
// built by the container tests and by the fuzz harness that needs a live
// log in its base. Free of the test framework for that reason.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "common/guid.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/little_endian.h"

namespace VhdxTest {

inline Common::Guid TestGuid(std::uint8_t seed) {
  Common::Guid g{0x11111111u * seed, static_cast<std::uint16_t>(0x2222 * seed),
                 static_cast<std::uint16_t>(0x3333 * seed), {}};
  for (std::uint8_t i = 0; i < 8; ++i) g.Data4[i] = static_cast<std::uint8_t>(seed + i);
  return g;
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
