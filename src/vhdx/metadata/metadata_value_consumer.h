// Vhdx::SingleValueMetadataConsumer<T>: takes the one item that holds a
// value of T and keeps the value. Module-internal; T is one of the value
// types of well_known_items.h.
#pragma once

#include <cstdint>
#include <optional>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "vhdx/metadata/well_known_items.h"

namespace Vhdx {

template <class T>
class SingleValueMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  SingleValueMetadataConsumer(const Common::Guid& itemId, bool isUser)
      : itemId_(itemId), isUser_(isUser) {}

  bool CanConsume(const MetadataDescriptor& descriptor) const override {
    return descriptor.Id == itemId_ && descriptor.IsUser() == isUser_;
  }

  // A second item overwrites the first: refusing duplicates is the business
  // of OnceMetadataConsumer.
  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override {
    CheckSupported(descriptor);
    CheckProvidedSize(size);
    value_ = T::Load(data);
  }

  const std::optional<T>& GetValue() const { return value_; }

 private:
  void CheckSupported(const MetadataDescriptor& descriptor) const {
    if (!CanConsume(descriptor))
      throw Common::MessageError(VR_SITE, kMetadataUnsupported,
                                 {MetadataIdText(descriptor), MetadataFlagsText(descriptor)});
  }
  static void CheckProvidedSize(std::uint32_t size) {
    if (size != sizeof(T)) throw Common::MessageError(VR_SITE, kMetadataLength);
  }

  Common::Guid itemId_;
  bool isUser_;
  std::optional<T> value_;
};

}  // namespace Vhdx
