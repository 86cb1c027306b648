#include "vhdx/metadata/metadata_consumer.h"

#include <string>

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/metadata/metadata_provider.h"

namespace Vhdx {

void ThrowOnRequiredUnhandledMetadata::OnUnhandledMetadata(const MetadataDescriptor& descriptor) {
  if (descriptor.IsRequired())
    throw Common::MessageError(VR_SITE, kMetadataRequired,
                               {MetadataIdText(descriptor), MetadataFlagsText(descriptor)});
}

void DispatchingComposite::Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                                   std::uint32_t size) {
  bool handled = false;
  for (const auto& consumer : consumers_) {
    if (!consumer->CanConsume(descriptor)) continue;
    consumer->Consume(descriptor, data, size);
    handled = true;
  }
  if (!handled) policy_->OnUnhandledMetadata(descriptor);
}

bool DispatchingComposite::CanConsume(const MetadataDescriptor& descriptor) const {
  for (const auto& consumer : consumers_)
    if (consumer->CanConsume(descriptor)) return true;
  return false;
}

void DispatchingComposite::Add(std::shared_ptr<SelectiveMetadataConsumer> consumer) {
  consumers_.push_back(std::move(consumer));
}

OnceMetadataConsumer::OnceMetadataConsumer(std::shared_ptr<SelectiveMetadataConsumer> wrapped)
    : wrapped_(std::move(wrapped)), state_(std::make_unique<InitialState>(*wrapped_, *this)) {}

void OnceMetadataConsumer::InitialState::Consume(const MetadataDescriptor& descriptor,
                                                 const std::uint8_t* data, std::uint32_t size) {
  // A consumer that refuses the item leaves the state as it was, so that the
  // read stops at the first fault instead of at a phantom duplicate.
  wrapped_.Consume(descriptor, data, size);
  // Destroys this state: nothing of it may be touched after the assignment.
  owner_.state_ = std::make_unique<MetaHasBeenSetState>(wrapped_);
}

void OnceMetadataConsumer::MetaHasBeenSetState::Consume(const MetadataDescriptor& descriptor,
                                                        const std::uint8_t*, std::uint32_t) {
  throw Common::MessageError(VR_SITE, kMetadataMultiple, {MetadataIdText(descriptor)});
}

bool OnlyCheckingMetadataConsumer::CanConsume(const MetadataDescriptor& descriptor) const {
  return descriptor.Id == Format::kPage83DataItem && !descriptor.IsUser();
}

void FilteringMetadataConsumer::Consume(const MetadataDescriptor& descriptor,
                                        const std::uint8_t* data, std::uint32_t size) {
  if (!ListNames(hidden_, descriptor)) inner_.Consume(descriptor, data, size);
}

void ThrowingSelectiveMetadataConsumer::Consume(const MetadataDescriptor& descriptor,
                                                const std::uint8_t* data, std::uint32_t size) {
  if (ListNames(refused_, descriptor))
    throw Common::MessageError(VR_SITE, kMetadataNotAllowed,
                               {MetadataIdText(descriptor), MetadataFlagsText(descriptor)});
  inner_.Consume(descriptor, data, size);
}

bool ThrowingSelectiveMetadataConsumer::CanConsume(const MetadataDescriptor& descriptor) const {
  return !ListNames(refused_, descriptor) && inner_.CanConsume(descriptor);
}

void FilteringMetadataProvider::Provide(SelectiveMetadataConsumer& consumer) {
  ThrowingSelectiveMetadataConsumer guarded(consumer, refused_);
  inner_.Provide(guarded);
}

}  // namespace Vhdx
