// Any bytes through the metadata code, three ways:
//  - as a whole metadata region, read with the consumers an open uses;
//  - as a region whose table is the first KiB of the input and whose item
//    data, the rest of it, starts at 64 KiB, as in real containers: read as
//    above, then an item set and removed, growing the region if need be;
//  - as a parent locator item.
// A thrown Common::Error is a fine answer; anything else is a fault.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/memory_file.h"
#include "vhdx/file/at_end_of_file_allocator.h"
#include "vhdx/file/expandable_file_region.h"
#include "vhdx/file/file_region_impl.h"
#include "vhdx/metadata/metadata_modifier.h"
#include "vhdx/metadata/metadata_reader.h"
#include "vhdx/metadata/metadata_value_consumer.h"
#include "vhdx/metadata/parent_locator.h"
#include "vhdx/file/writeable_file.h"

namespace {

using namespace Vhdx;

constexpr std::size_t kTablePart = 1024;

struct NoMonitor : ExpansionMonitor {
  void OnExpanded(const Area&, const Area&) override {}
};

template <class Fn>
void Try(Fn fn) {
  try {
    fn();
  } catch (const Common::Error&) {
  }
}

// The disk file's set: four values and the locator, each taken once, and
// the caller's consumer, here the one of opens that want no metadata.
void ReadAsAnOpen(File& file, const Area& location, bool ignore) {
  auto logical = std::make_shared<SingleValueMetadataConsumer<VirtualDiskLogicalSectorSize>>(
      Format::kLogicalSectorSizeItem, false);
  auto physical = std::make_shared<SingleValueMetadataConsumer<VirtualDiskPhysicalSectorSize>>(
      Format::kPhysicalSectorSizeItem, false);
  auto parameters = std::make_shared<SingleValueMetadataConsumer<FileParameters>>(
      Format::kFileParametersItem, false);
  auto size = std::make_shared<SingleValueMetadataConsumer<VirtualDiskSize>>(
      Format::kVirtualDiskSizeItem, false);
  auto locator = std::make_shared<ParentLocatorMetadataConsumerImpl>();
  OnlyCheckingMetadataConsumer checking;
  std::unique_ptr<UnhandledMetadataPolicy> policy;
  if (ignore)
    policy = std::make_unique<IgnoreUnhandledMetadata>();
  else
    policy = std::make_unique<ThrowOnRequiredUnhandledMetadata>();
  DispatchingComposite root(std::move(policy));
  root.Add(std::make_shared<OnceMetadataConsumer>(logical));
  root.Add(std::make_shared<OnceMetadataConsumer>(physical));
  root.Add(std::make_shared<OnceMetadataConsumer>(parameters));
  root.Add(std::make_shared<OnceMetadataConsumer>(size));
  root.Add(std::make_shared<OnceMetadataConsumer>(locator));
  root.Add(std::make_shared<MetadataConsumerDelegate>(checking));
  // With the lenient policy, through the filter of the disk file's
  // enumeration as well.
  FilteringMetadataConsumer hiding(root, WellKnownItems::DiskFileItems());
  MetadataConsumer& consumer = ignore ? static_cast<MetadataConsumer&>(hiding) : root;
  Try([&] {
    MetadataReaderImpl(std::make_unique<ReadOnlyFileRegionImpl>(file, location)).Read(consumer);
  });
  for (const auto& entry : locator->GetEntries())
    if (entry.Key.size() > 0x8000 || entry.Value.size() > 0x8000) __builtin_trap();
}

void Exercise(const std::string& bytes, bool modify) {
  auto memory = Common::MemoryFile::Create();
  memory->Write(bytes.data(), bytes.size());
  WriteableFile file(*memory);
  const Area whole{0, static_cast<std::uint32_t>(bytes.size())};
  ReadAsAnOpen(file, whole, false);
  ReadAsAnOpen(file, whole, true);
  if (!modify) return;
  MetadataModifierImpl modifier(std::make_unique<ExpandableFileRegionImpl>(
      file, whole, std::make_shared<AtEndOfFileAllocator>(file, 0, 0),
      std::make_shared<NoMonitor>()));
  const std::uint8_t item[40] = {1, 2, 3};
  const MetadataDescriptor user{Format::kVirtualDiskSizeItem, Format::kMetadataIsUser};
  Try([&] { modifier.Set(WellKnownItems::kPage83Data, item, 16); });
  Try([&] { modifier.Set(user, item, sizeof item); });
  Try([&] { modifier.Remove(WellKnownItems::kPage83Data); });
  Try([&] { modifier.Set(user, item, 8); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  Exercise(bytes, false);

  std::string region = bytes.substr(0, kTablePart);
  region.resize(Format::kMetadataTableAreaSize, '\0');
  if (size > kTablePart) region.append(bytes, kTablePart);
  Exercise(region, true);

  Try([&] { ParentLocatorParser(data, static_cast<std::uint32_t>(size)).Parse(); });
  return 0;
}
