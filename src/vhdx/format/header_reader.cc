#include "vhdx/format/header_reader.h"

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/header_image.h"

namespace Vhdx {

HeaderInfo HeaderReader::Read(File& file) {
  const HeaderImages images = ReadHeaderImages(file);
  const auto current = FindCurrentHeader(images);
  if (!current) throw Common::MessageError(VR_SITE, kNoCurrentHeader);
  return DecodeHeaderInfo(images[*current]);
}

}  // namespace Vhdx
