// Vhdx::MetadataProvider: how callers hand a set of items to the engine,
// and the filter that keeps some items out of their hands. Module-internal.
#pragma once

#include "vhdx/metadata/metadata_consumer.h"

namespace Vhdx {

class MetadataProvider {
 public:
  MetadataProvider() = default;
  MetadataProvider(const MetadataProvider&) = delete;
  MetadataProvider& operator=(const MetadataProvider&) = delete;
  virtual ~MetadataProvider() = default;

  // Calls consumer.Consume once for each item.
  virtual void Provide(SelectiveMetadataConsumer& consumer) = 0;
};

// Runs the inner provider against a consumer that refuses the listed items,
// so that an attempt to set one of them fails.
class FilteringMetadataProvider : public MetadataProvider {
 public:
  // `inner` must outlive this one.
  FilteringMetadataProvider(MetadataProvider& inner, MetadataDescriptorList refused)
      : inner_(inner), refused_(std::move(refused)) {}

  void Provide(SelectiveMetadataConsumer& consumer) override;

 private:
  MetadataProvider& inner_;
  MetadataDescriptorList refused_;
};

}  // namespace Vhdx
