#include "vhdx/format/header_image.h"

#include "vhdx/format/crc32c.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

namespace H = Format::Header;

HeaderImages ReadHeaderImages(File& file) {
  HeaderImages images;
  for (std::size_t i = 0; i < Format::kHeaderCount; ++i)
    file.Read(Format::kHeaderOffsets[i], images[i].size(), images[i].data());
  return images;
}

bool IsValidHeaderImage(const HeaderImage& image) {
  if (LoadLe32(&image[H::kSignature]) != Format::kHeaderSignature) return false;
  // The checksum covers the whole image with its own field taken as zero:
  // the CRC runs over the bytes before it, four zeros, and the rest.
  static constexpr std::uint8_t kZeroField[4] = {};
  std::uint32_t crc = Crc32c(image.data(), H::kChecksum);
  crc = Crc32c(kZeroField, sizeof kZeroField, crc);
  crc = Crc32c(&image[H::kChecksum + 4], image.size() - H::kChecksum - 4, crc);
  return crc == LoadLe32(&image[H::kChecksum]);
}

std::uint64_t SequenceNumberOf(const HeaderImage& image) {
  return LoadLe64(&image[H::kSequenceNumber]);
}

std::optional<std::size_t> FindCurrentHeader(const HeaderImages& images) {
  std::optional<std::size_t> current;
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (!IsValidHeaderImage(images[i])) continue;
    if (!current || SequenceNumberOf(images[i]) > SequenceNumberOf(images[*current])) current = i;
  }
  return current;
}

HeaderInfo DecodeHeaderInfo(const HeaderImage& image) {
  HeaderInfo info;
  info.FileWriteGuid = LoadGuid(&image[H::kFileWriteGuid]);
  info.DataWriteGuid = LoadGuid(&image[H::kDataWriteGuid]);
  info.LogGuid = LoadGuid(&image[H::kLogGuid]);
  info.LogVersion = LoadLe16(&image[H::kLogVersion]);
  info.Version = LoadLe16(&image[H::kVersion]);
  info.LogLength = LoadLe32(&image[H::kLogLength]);
  info.LogOffset = LoadLe64(&image[H::kLogOffset]);
  return info;
}

HeaderImage EncodeHeaderImage(const HeaderInfo& info) {
  HeaderImage image{};
  StoreLe32(&image[H::kSignature], Format::kHeaderSignature);
  StoreGuid(&image[H::kFileWriteGuid], info.FileWriteGuid);
  StoreGuid(&image[H::kDataWriteGuid], info.DataWriteGuid);
  StoreGuid(&image[H::kLogGuid], info.LogGuid);
  StoreLe16(&image[H::kLogVersion], info.LogVersion);
  StoreLe16(&image[H::kVersion], info.Version);
  StoreLe32(&image[H::kLogLength], info.LogLength);
  StoreLe64(&image[H::kLogOffset], info.LogOffset);
  StoreLe32(&image[H::kChecksum], Crc32c(image.data(), image.size()));
  return image;
}

}  // namespace Vhdx
