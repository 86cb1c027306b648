#include "vhdx/format/file_validator.h"

#include <array>
#include <cstring>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"

namespace Vhdx {

void FileValidator::CheckFileId(File& file) {
  // Only the signature is looked at, but the whole identifier is read: a
  // file too short to hold one fails with the file's own error.
  std::array<std::uint8_t, Format::kFileIdentifierSize> identifier;
  file.Read(Format::kFileIdentifierOffset, identifier.size(), identifier.data());
  if (std::memcmp(identifier.data(), Format::kFileIdentifierSignature,
                  sizeof Format::kFileIdentifierSignature) != 0)
    throw Common::MessageError(VR_SITE, kUnknownFormat);
}

void FileValidator::CheckVersion(File& file) {
  CheckFileId(file);
  if (HeaderReader::Read(file).Version != Format::kVersion)
    throw Common::MessageError(VR_SITE, kInvalidVersion);
}

}  // namespace Vhdx
