// Vhdx::MetadataReader: streams every item of a metadata region, in table
// order, into a consumer. Module-internal.
#pragma once

#include <memory>

#include "vhdx/file/file_region.h"
#include "vhdx/metadata/metadata_consumer.h"

namespace Vhdx {

class MetadataReader {
 public:
  MetadataReader() = default;
  MetadataReader(const MetadataReader&) = delete;
  MetadataReader& operator=(const MetadataReader&) = delete;
  virtual ~MetadataReader() = default;

  // Stops at the first failure; what the consumer got before stays with it.
  virtual void Read(MetadataConsumer& consumer) = 0;
};

class MetadataReaderImpl : public MetadataReader {
 public:
  explicit MetadataReaderImpl(std::unique_ptr<ReadOnlyFileRegion> region)
      : region_(std::move(region)) {}

  // Besides the table's own failures, an item that reaches past the region
  // is refused with 0x3C0036 before anything is allocated for it.
  void Read(MetadataConsumer& consumer) override;

 private:
  std::unique_ptr<ReadOnlyFileRegion> region_;
};

}  // namespace Vhdx
