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
#include "vhdx/metadata/parent_locator_writer.h"
#include "vhdx/format/region_table.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/file/throwing_expandable_file_region.h"
#include "vhdx/metadata/well_known_items.h"
#include "vhdx/file/writeable_file.h"

namespace VhdxTest {

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
    const std::vector<std::uint8_t> locator = Vhdx::EncodeParentLocator(entries);
    modifier.Set(Vhdx::WellKnownItems::kParentLocator, locator.data(), static_cast<std::uint32_t>(locator.size()));
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
