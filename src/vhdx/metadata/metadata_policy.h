// What becomes of a metadata item that no consumer takes. Module-internal.
#pragma once

#include "vhdx/metadata/metadata_descriptor.h"

namespace Vhdx {

class UnhandledMetadataPolicy {
 public:
  UnhandledMetadataPolicy() = default;
  UnhandledMetadataPolicy(const UnhandledMetadataPolicy&) = delete;
  UnhandledMetadataPolicy& operator=(const UnhandledMetadataPolicy&) = delete;
  virtual ~UnhandledMetadataPolicy() = default;

  virtual void OnUnhandledMetadata(const MetadataDescriptor& descriptor) = 0;
};

class IgnoreUnhandledMetadata : public UnhandledMetadataPolicy {
 public:
  void OnUnhandledMetadata(const MetadataDescriptor&) override {}
};

// An unknown item may be passed over unless its writer marked it as one that
// readers must understand: then 0x3C0027.
class ThrowOnRequiredUnhandledMetadata : public UnhandledMetadataPolicy {
 public:
  void OnUnhandledMetadata(const MetadataDescriptor& descriptor) override;
};

}  // namespace Vhdx
