#include "vhdx/metadata/metadata_descriptor.h"

namespace Vhdx {

// Both texts are plain ASCII, so widening each byte is the whole conversion.
std::u16string MetadataIdText(const MetadataDescriptor& descriptor) {
  const std::string text = Common::GuidToString(descriptor.Id);
  return {text.begin(), text.end()};
}

std::u16string MetadataFlagsText(const MetadataDescriptor& descriptor) {
  const std::string text = std::to_string(descriptor.Flags);
  return {text.begin(), text.end()};
}

}  // namespace Vhdx
