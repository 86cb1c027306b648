// Any bytes as a container's first megabyte (cut or zero-padded to 1 MiB)
// through the checks and readers every open starts with. Each input runs
// twice: as it is, and with the checksums of both headers and both region
// tables made to match, so that the parsers behind the checksums are
// reached too. A thrown Common::Error is a fine answer; anything else is a
// fault.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "common/memory_file.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/file_validator.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/format/region_table_reader.h"

namespace {

namespace Format = Vhdx::Format;

void Seal(std::string& bytes, std::uint64_t offset, std::size_t size) {
  auto* p = reinterpret_cast<std::uint8_t*>(bytes.data()) + offset;
  Vhdx::StoreLe32(p + 4, 0);
  Vhdx::StoreLe32(p + 4, Vhdx::Crc32c(p, size));
}

void Exercise(const std::string& bytes) {
  auto memory = Common::MemoryFile::Create();
  memory->Write(bytes.data(), bytes.size());
  Vhdx::ReadOnlyFile file(*memory);
  try {
    Vhdx::FileValidator::CheckVersion(file);
  } catch (const Common::Error&) {
  }
  try {
    Vhdx::HeaderReader::Read(file);
  } catch (const Common::Error&) {
  }
  try {
    const Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    if (regions.size() > Format::kMaxRegionEntries) __builtin_trap();
    Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid);
    Vhdx::GetRegionEntryById(regions, Format::kMetadataRegionGuid);
  } catch (const Common::Error&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, Format::kMiB));
  bytes.resize(Format::kMiB, '\0');
  Exercise(bytes);
  for (const std::uint64_t offset : Format::kHeaderOffsets) Seal(bytes, offset, Format::kHeaderSize);
  for (const std::uint64_t offset : Format::kRegionTableOffsets)
    Seal(bytes, offset, Format::kRegionTableSize);
  Exercise(bytes);
  return 0;
}
