// The raw metadata items of a disk as hosts see them through
// VirtualMachineDiskEx: keys as text, item bytes as they lie. These are the
// consumers and providers the facade runs through the engine's metadata
// read and rewrite; module-internal.
#pragma once

#include <cstdint>
#include <vector>

#include "vellumrig/disk.h"
#include "vhdx/metadata/metadata_consumer.h"
#include "vhdx/metadata/metadata_provider.h"

namespace VirtualDisks {

// The descriptor a host's key names. Throws 0x3C0038 when the text is no
// GUID.
Vhdx::MetadataDescriptor DescriptorOf(const MetadataKey& key);
// False when the text is no GUID.
bool TryDescriptorOf(const MetadataKey& key, Vhdx::MetadataDescriptor& descriptor);
MetadataKey KeyOf(const Vhdx::MetadataDescriptor& descriptor);

// Appends each item's descriptor.
class MetadataDescriptorsCollector : public Vhdx::MetadataConsumer {
 public:
  explicit MetadataDescriptorsCollector(std::vector<Vhdx::MetadataDescriptor>& out) : out_(out) {}
  void Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t*, std::uint32_t) override {
    out_.push_back(descriptor);
  }

 private:
  std::vector<Vhdx::MetadataDescriptor>& out_;
};

// Takes the bytes of the one item it was made for. As a plain consumer it
// passes every other item by; handed one it cannot take, it raises 0x3C0028.
class RawMetadataConsumer : public Vhdx::SelectiveMetadataConsumer {
 public:
  RawMetadataConsumer(const Vhdx::MetadataDescriptor& wanted, std::vector<std::uint8_t>& out)
      : wanted_(wanted), out_(out) {}

  void Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override;
  bool CanConsume(const Vhdx::MetadataDescriptor& descriptor) const override;
  bool Taken() const { return taken_; }
  void CheckSupported(const Vhdx::MetadataDescriptor& descriptor) const;

 private:
  Vhdx::MetadataDescriptor wanted_;
  std::vector<std::uint8_t>& out_;
  bool taken_ = false;
};

// Notes whether the item it was made for passes by.
class CheckingMetadataConsumer : public Vhdx::MetadataConsumer {
 public:
  explicit CheckingMetadataConsumer(const Vhdx::MetadataDescriptor& wanted) : wanted_(wanted) {}
  void Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t*, std::uint32_t) override;
  bool Found() const { return found_; }

 private:
  Vhdx::MetadataDescriptor wanted_;
  bool found_ = false;
};

// Hands the rewrite one item: the wanted key with new bytes.
class SettingMetadataProvider : public Vhdx::MetadataProvider {
 public:
  SettingMetadataProvider(const Vhdx::MetadataDescriptor& descriptor, const std::vector<std::uint8_t>& bytes)
      : descriptor_(descriptor), bytes_(bytes) {}
  void Provide(Vhdx::SelectiveMetadataConsumer& consumer) override;

 private:
  Vhdx::MetadataDescriptor descriptor_;
  const std::vector<std::uint8_t>& bytes_;
};

}  // namespace VirtualDisks
