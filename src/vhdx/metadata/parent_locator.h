// The parent locator of a differencing container: the item's parser and
// the consumer that keeps its entries. Keys and values are the item's UTF-16
// code units as stored, without conversion. Module-internal.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vhdx/metadata/metadata_consumer.h"

namespace Vhdx {

struct ParentLocatorEntry {
  std::u16string Key;
  std::u16string Value;

  friend bool operator==(const ParentLocatorEntry&, const ParentLocatorEntry&) = default;
};

// In item order; a key may appear more than once.
using ParentLocatorEntryList = std::vector<ParentLocatorEntry>;

class ParentLocatorParser {
 public:
  // `data` must hold `size` bytes for the life of the parser.
  ParentLocatorParser(const std::uint8_t* data, std::uint32_t size) : data_(data), size_(size) {}

  // Throws 0x3C0013 for a locator of another type, 0x3C0014 for anything
  // that reaches past the item.
  ParentLocatorEntryList Parse() const;

 private:
  void CheckHeader() const;
  // Passes when the first `end` bytes lie in the item.
  void CheckBound(std::uint64_t end) const;
  std::u16string ReadString(std::uint32_t offset, std::uint16_t length) const;

  const std::uint8_t* data_;
  std::uint32_t size_;
};

class ParentLocatorMetadataConsumer : public SelectiveMetadataConsumer {
 public:
  virtual ParentLocatorEntryList GetEntries() const = 0;
};

class ParentLocatorMetadataConsumerImpl : public ParentLocatorMetadataConsumer {
 public:
  bool CanConsume(const MetadataDescriptor& descriptor) const override;
  // The list is replaced only by a locator that parses whole.
  void Consume(const MetadataDescriptor& descriptor, const std::uint8_t* data,
               std::uint32_t size) override;
  ParentLocatorEntryList GetEntries() const override { return entries_; }

 private:
  ParentLocatorEntryList entries_;
};

}  // namespace Vhdx
