#include "vhdx/format/region_table_reader.h"

#include <optional>
#include <vector>

#include "common/site.h"
#include "vhdx/format/crc32c.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {
namespace {

namespace T = Format::RegionTable;
namespace E = Format::RegionEntry;

// The entries of a table image, or nothing if the image is not valid.
std::optional<RegionList> Parse(const std::vector<std::uint8_t>& image) {
  if (LoadLe32(&image[T::kSignature]) != Format::kRegionTableSignature) return std::nullopt;
  static constexpr std::uint8_t kZeroField[4] = {};
  std::uint32_t crc = Crc32c(image.data(), T::kChecksum);
  crc = Crc32c(kZeroField, sizeof kZeroField, crc);
  crc = Crc32c(&image[T::kChecksum + 4], image.size() - T::kChecksum - 4, crc);
  if (crc != LoadLe32(&image[T::kChecksum])) return std::nullopt;
  // A good checksum says nothing about a sane count, and one that reaches
  // past the table would have us read behind the buffer: such a copy counts
  // as invalid like any other damage.
  const std::uint32_t count = LoadLe32(&image[T::kEntryCount]);
  if (count > Format::kMaxRegionEntries) return std::nullopt;
  RegionList regions;
  regions.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint8_t* p = &image[T::kFirstEntry + i * E::kSize];
    regions.push_back({LoadGuid(p + E::kGuid), LoadLe64(p + E::kFileOffset),
                       LoadLe32(p + E::kLength), LoadLe32(p + E::kRequired)});
  }
  return regions;
}

}  // namespace

RegionList RegionTableReader::Read(File& file) {
  for (std::size_t index = 0; index < Format::kRegionTableCount; ++index)
    if (auto regions = ReadCopy(file, index)) return std::move(*regions);
  throw Common::MessageError(VR_SITE, kRegionTableInvalid);
}

std::optional<RegionList> RegionTableReader::ReadCopy(File& file, std::size_t index) {
  std::vector<std::uint8_t> image(Format::kRegionTableSize);
  file.Read(Format::kRegionTableOffsets[index], image.size(), image.data());
  return Parse(image);
}

}  // namespace Vhdx
