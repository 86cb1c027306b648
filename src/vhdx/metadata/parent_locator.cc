#include "vhdx/metadata/parent_locator.h"

#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

namespace L = Format::ParentLocator;
namespace E = Format::ParentLocatorEntry;

void ParentLocatorParser::CheckBound(std::uint64_t end) const {
  if (end > size_) throw Common::MessageError(VR_SITE, kLocatorBounds);
}

void ParentLocatorParser::CheckHeader() const {
  CheckBound(L::kHeaderSize);
  const Common::Guid type = LoadGuid(data_ + L::kLocatorType);
  if (!(type == Format::kVhdxParentLocatorType)) {
    const std::string text = Common::GuidToString(type);
    throw Common::MessageError(VR_SITE, kLocatorType, {std::u16string(text.begin(), text.end())});
  }
}

std::u16string ParentLocatorParser::ReadString(std::uint32_t offset, std::uint16_t length) const {
  // Summed in 64 bits: a 32-bit sum of a large offset would wrap and pass,
  // and the read behind it would leave the item.
  CheckBound(std::uint64_t{offset} + length);
  std::u16string text(length / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = LoadLe16(data_ + offset + 2 * i);
  return text;
}

ParentLocatorEntryList ParentLocatorParser::Parse() const {
  CheckHeader();
  const std::uint16_t count = LoadLe16(data_ + L::kKeyValueCount);
  // The end of the entry table is worked out in 16 bits, so that a count of
  // 5460 or more wraps and passes here. Each entry is bounded on its own
  // below, so the wrap lets no read leave the item.
  CheckBound(static_cast<std::uint16_t>(L::kHeaderSize + E::kSize * count));
  ParentLocatorEntryList entries;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint64_t at = L::kHeaderSize + std::uint64_t{E::kSize} * i;
    CheckBound(at + E::kSize);
    const std::uint8_t* p = data_ + at;
    ParentLocatorEntry entry;
    entry.Key = ReadString(LoadLe32(p + E::kKeyOffset), LoadLe16(p + E::kKeyLength));
    entry.Value = ReadString(LoadLe32(p + E::kValueOffset), LoadLe16(p + E::kValueLength));
    entries.push_back(std::move(entry));
  }
  return entries;
}

bool ParentLocatorMetadataConsumerImpl::CanConsume(const MetadataDescriptor& descriptor) const {
  return descriptor.Id == Format::kParentLocatorItem && !descriptor.IsUser();
}

void ParentLocatorMetadataConsumerImpl::Consume(const MetadataDescriptor& descriptor,
                                                const std::uint8_t* data, std::uint32_t size) {
  if (!CanConsume(descriptor))
    throw Common::MessageError(VR_SITE, kMetadataUnsupported,
                               {MetadataIdText(descriptor), MetadataFlagsText(descriptor)});
  ParentLocatorEntryList parsed = ParentLocatorParser(data, size).Parse();
  entries_.swap(parsed);
}

}  // namespace Vhdx
