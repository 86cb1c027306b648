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
#include "vhdx/log_entry_builder.h"

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

}  // namespace VhdxTest
