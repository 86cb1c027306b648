#include "virtual_disks/raw_metadata.h"

#include <limits>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace VirtualDisks {

bool TryDescriptorOf(const MetadataKey& key, Vhdx::MetadataDescriptor& descriptor) {
  descriptor.Flags = key.Flags;
  return Common::GuidFromString(descriptor.Id, key.Guid.c_str());
}

Vhdx::MetadataDescriptor DescriptorOf(const MetadataKey& key) {
  Vhdx::MetadataDescriptor descriptor;
  if (!TryDescriptorOf(key, descriptor)) throw Common::MessageError(VR_SITE, Vhdx::kInvalidMetadataKey);
  return descriptor;
}

MetadataKey KeyOf(const Vhdx::MetadataDescriptor& descriptor) {
  return {Common::GuidToString(descriptor.Id), descriptor.Flags};
}

bool RawMetadataConsumer::CanConsume(const Vhdx::MetadataDescriptor& descriptor) const {
  return Vhdx::NamesSameItem(descriptor, wanted_);
}

void RawMetadataConsumer::CheckSupported(const Vhdx::MetadataDescriptor& descriptor) const {
  if (!CanConsume(descriptor))
    throw Common::MessageError(VR_SITE, Vhdx::kMetadataUnsupported,
                               {Vhdx::MetadataIdText(descriptor), Vhdx::MetadataFlagsText(descriptor)});
}

void RawMetadataConsumer::Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t* data,
                                  std::uint32_t size) {
  CheckSupported(descriptor);
  out_.assign(data, data + size);
  taken_ = true;
}

void CheckingMetadataConsumer::Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t*,
                                       std::uint32_t) {
  if (Vhdx::NamesSameItem(descriptor, wanted_)) found_ = true;
}

void SettingMetadataProvider::Provide(Vhdx::SelectiveMetadataConsumer& consumer) {
  // An item's length is 32 bits in the table; longer bytes would be cut.
  if (bytes_.size() > std::numeric_limits<std::uint32_t>::max())
    throw Common::MessageError(VR_SITE, Vhdx::kInvalidArguments);
  consumer.Consume(descriptor_, bytes_.data(), static_cast<std::uint32_t>(bytes_.size()));
}

}  // namespace VirtualDisks
