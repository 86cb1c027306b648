// Vhdx::MetadataModifier: creates, replaces and removes the items of a
// metadata region, finding room for item data inside the region and growing
// it when there is none. Module-internal.
#pragma once

#include <cstdint>
#include <memory>

#include "vhdx/file/file_region.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "vhdx/metadata/space_manager.h"

namespace Vhdx {

class MetadataModifier {
 public:
  MetadataModifier() = default;
  MetadataModifier(const MetadataModifier&) = delete;
  MetadataModifier& operator=(const MetadataModifier&) = delete;
  virtual ~MetadataModifier() = default;

  virtual void Set(const MetadataDescriptor& descriptor, const std::uint8_t* data,
                   std::uint32_t size) = 0;
  virtual void Remove(const MetadataDescriptor& descriptor) = 0;
};

// Nothing is cached between calls: each one rereads the table and rebuilds
// the map of used space from it, so room a moved item left behind is free
// at the next call.
class MetadataModifierImpl : public MetadataModifier {
 public:
  explicit MetadataModifierImpl(std::unique_ptr<ExpandableFileRegion> region)
      : region_(std::move(region)) {}

  // The data goes in first and the table that makes it visible last, so a
  // failure in between leaves the old table in force.
  void Set(const MetadataDescriptor& descriptor, const std::uint8_t* data,
           std::uint32_t size) override;
  // Absent items are not an error. The removed item's data and the stale
  // last entry stay in the file.
  void Remove(const MetadataDescriptor& descriptor) override;

 private:
  Area OccupyFreeSpace(SpaceManager& space, std::uint32_t size);

  std::unique_ptr<ExpandableFileRegion> region_;
};

// Writes every item it is given through a modifier: the consumer a provider
// is run against to store its items.
class WritingMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  // The modifier must outlive this one.
  explicit WritingMetadataConsumer(MetadataModifier& modifier) : modifier_(modifier) {}

  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override {
    modifier_.Set(descriptor, data, size);
  }
  bool CanConsume(const MetadataDescriptor&) const override { return true; }

 private:
  MetadataModifier& modifier_;
};

}  // namespace Vhdx
