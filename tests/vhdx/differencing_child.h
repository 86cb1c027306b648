// Differencing files for tests and benchmarks. The engine makes dynamic
// files only; a child is a dynamic file whose FileParameters say HasParent
// and whose parent locator names the parent, both set here with the
// engine's own metadata modifier.
#pragma once

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vellumrig/error_text.h"
#include "vellumrig/folder.h"
#include "vhdx/disk/create.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/format/format.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/parent_locator.h"
#include "vhdx/format/region_table.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/file/writeable_file.h"

namespace VhdxTest {

// The locator item: type GUID, count, key/value table, then the UTF-16 text.
inline std::string EncodeParentLocator(const Vhdx::ParentLocatorEntryList& entries) {
  namespace F = Vhdx::Format;
  std::string item(F::ParentLocator::kHeaderSize + entries.size() * F::ParentLocatorEntry::kSize, '\0');
  std::memcpy(item.data(), &F::kVhdxParentLocatorType, sizeof F::kVhdxParentLocatorType);
  auto* p = reinterpret_cast<std::uint8_t*>(item.data());
  Vhdx::StoreLe16(p + F::ParentLocator::kKeyValueCount, static_cast<std::uint16_t>(entries.size()));
  std::string text;
  auto place = [&](const std::u16string& s) {
    const auto offset = static_cast<std::uint32_t>(item.size() + text.size());
    text.append(reinterpret_cast<const char*>(s.data()), s.size() * 2);
    return offset;
  };
  for (std::size_t i = 0; i < entries.size(); ++i) {
    auto* e = reinterpret_cast<std::uint8_t*>(item.data()) + F::ParentLocator::kHeaderSize +
              i * F::ParentLocatorEntry::kSize;
    const std::uint32_t key = place(entries[i].Key);
    const std::uint32_t value = place(entries[i].Value);
    Vhdx::StoreLe32(e + F::ParentLocatorEntry::kKeyOffset, key);
    Vhdx::StoreLe32(e + F::ParentLocatorEntry::kValueOffset, value);
    Vhdx::StoreLe16(e + F::ParentLocatorEntry::kKeyLength, static_cast<std::uint16_t>(entries[i].Key.size() * 2));
    Vhdx::StoreLe16(e + F::ParentLocatorEntry::kValueLength, static_cast<std::uint16_t>(entries[i].Value.size() * 2));
  }
  return item + text;
}

// "{XXXXXXXX-...}", the form locators hold.
inline std::u16string LinkageText(const Common::Guid& guid) {
  std::u16string text = u"{";  // not u"{" + temporary: a false -Wrestrict in g++ 12
  text += Common::FromUtf8(Common::GuidToString(guid));
  return text += u"}";
}

// Changes the metadata items of a container in place, as another writer
// may; the header, and so the write GUIDs, stay as they are.
inline void ModifyMetadata(Vhdx::File& file, const std::function<void(Vhdx::MetadataModifier&)>& edit) {
  const Vhdx::RegionTableEntry region =
      Vhdx::GetRegionEntryById(Vhdx::RegionTableReader::Read(file), Vhdx::Format::kMetadataRegionGuid);
  Vhdx::MetadataModifierImpl modifier(std::make_unique<Vhdx::ThrowingExpandableFileRegion>(
      std::make_unique<Vhdx::WritableFileRegionImpl>(file, Vhdx::Area{region.FileOffset, region.Length})));
  edit(modifier);
}

// Makes the existing dynamic file `name` a differencing one with `entries`
// as its parent locator.
inline void SetParentLocator(rio_dir& dir, const std::u16string& name, const Vhdx::ParentLocatorEntryList& entries) {
  std::unique_ptr<i_file> host = dir.OpenFile(name, kOpenReadWrite);
  Vhdx::WriteableFile file(dynamic_cast<rio_file&>(*host));
  ModifyMetadata(file, [&](Vhdx::MetadataModifier& modifier) {
    std::uint8_t parameters[8];
    Vhdx::FileParameters{0x400000, Vhdx::FileParameters::kHasParent}.Store(parameters);
    modifier.Set(Vhdx::WellKnownItems::kFileParameters, parameters, sizeof parameters);
    const std::string locator = EncodeParentLocator(entries);
    modifier.Set(Vhdx::WellKnownItems::kParentLocator, reinterpret_cast<const std::uint8_t*>(locator.data()),
                 static_cast<std::uint32_t>(locator.size()));
  });
}

// Lays down `name` in `dir` as a differencing file of `size` bytes with
// `entries` as its parent locator.
inline void CreateDifferencingChild(rio_dir& dir, const std::u16string& name, std::uint64_t size,
                                    std::uint32_t sectorSize, const Vhdx::ParentLocatorEntryList& entries) {
  Vhdx::Create(dir, name, Vhdx::kCreateDynamic, {size, sectorSize});
  SetParentLocator(dir, name, entries);
}

}  // namespace VhdxTest
