#include "vhdx/metadata/parent_locator_writer.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"

namespace Vhdx {

namespace L = Format::ParentLocator;
namespace E = Format::ParentLocatorEntry;

std::vector<std::uint8_t> EncodeParentLocator(const ParentLocatorEntryList& entries) {
  // Lengths are 16-bit byte counts and offsets 32-bit: a longer text would
  // be cut short on disk and name another file.
  if (entries.size() > UINT16_MAX) throw Common::MessageError(VR_SITE, kInvalidArguments);
  for (const ParentLocatorEntry& entry : entries)
    if (entry.Key.size() * 2 > UINT16_MAX || entry.Value.size() * 2 > UINT16_MAX)
      throw Common::MessageError(VR_SITE, kInvalidArguments);

  std::vector<std::uint8_t> item(L::kHeaderSize + entries.size() * E::kSize);
  StoreGuid(item.data() + L::kLocatorType, Format::kVhdxParentLocatorType);
  StoreLe16(item.data() + L::kKeyValueCount, static_cast<std::uint16_t>(entries.size()));
  auto place = [&item](const std::u16string& text) {
    const auto offset = static_cast<std::uint32_t>(item.size());
    for (const char16_t unit : text) {
      item.push_back(static_cast<std::uint8_t>(unit & 0xFF));
      item.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    return offset;
  };
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::uint32_t key = place(entries[i].Key);
    const std::uint32_t value = place(entries[i].Value);
    std::uint8_t* entry = item.data() + L::kHeaderSize + i * E::kSize;
    StoreLe32(entry + E::kKeyOffset, key);
    StoreLe32(entry + E::kValueOffset, value);
    StoreLe16(entry + E::kKeyLength, static_cast<std::uint16_t>(entries[i].Key.size() * 2));
    StoreLe16(entry + E::kValueLength, static_cast<std::uint16_t>(entries[i].Value.size() * 2));
  }
  return item;
}

}  // namespace Vhdx
