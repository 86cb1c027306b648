// vrig vhdx info: what a container says about itself, in text or JSON.
// The file is opened alone first, so that a child whose parent is missing
// still shows all it holds; the chain is opened after, for its parents.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <optional>

#include "cli.h"
#include "common/guid.h"
#include "vhdx/check/check.h"
#include "json.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/format/format.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

namespace Format = Vhdx::Format;

const char* ItemName(const Vhdx::MetadataDescriptor& item) {
  if (item.IsUser()) return "";
  struct Known {
    const Common::Guid& Id;
    const char* Name;
  };
  static const Known known[] = {{Format::kFileParametersItem, "file parameters"},
                                {Format::kVirtualDiskSizeItem, "virtual disk size"},
                                {Format::kPage83DataItem, "page 83 data"},
                                {Format::kLogicalSectorSizeItem, "logical sector size"},
                                {Format::kPhysicalSectorSizeItem, "physical sector size"},
                                {Format::kParentLocatorItem, "parent locator"}};
  for (const Known& k : known)
    if (k.Id == item.Id) return k.Name;
  return "";
}

std::string FlagsText(std::uint32_t flags) {
  std::string text;
  auto add = [&](std::uint32_t bit, const char* name) {
    if (flags & bit) text += std::string(text.empty() ? "" : ",") + name;
  };
  add(Format::kMetadataIsUser, "user");
  add(Format::kMetadataIsVirtualDisk, "virtual-disk");
  add(Format::kMetadataIsRequired, "required");
  return text.empty() ? "-" : text;
}

const char* TypeName(std::uint32_t type) {
  switch (type) {
    case Vhdx::kFixedFile: return "fixed";
    case Vhdx::kDynamicFile: return "dynamic";
    case Vhdx::kDifferencingFile: return "differencing";
    default: return "unknown";
  }
}

// Records the file's items, and keeps the values of the two that the disk
// parameters leave out. Unknown items that readers must understand are left
// to the engine's policy, so that info refuses what every other open refuses.
class RecordingConsumer : public Vhdx::SelectiveMetadataConsumer {
 public:
  struct Item {
    Vhdx::MetadataDescriptor Descriptor;
    std::uint32_t Size;
  };

  bool CanConsume(const Vhdx::MetadataDescriptor& descriptor) const override {
    return !descriptor.IsRequired() || *ItemName(descriptor);
  }
  void Consume(const Vhdx::MetadataDescriptor& descriptor, const std::uint8_t* data, std::uint32_t size) override {
    items.push_back({descriptor, size});
    if (descriptor.IsUser()) return;
    if (descriptor.Id == Format::kPage83DataItem && size == sizeof(Common::Guid)) {
      Common::Guid id;
      std::memcpy(&id, data, sizeof id);
      diskId = id;
    } else if (descriptor.Id == Format::kPhysicalSectorSizeItem && size == 4) {
      physicalSectorSize = static_cast<std::uint32_t>(data[0] | data[1] << 8 | data[2] << 16) |
                           static_cast<std::uint32_t>(data[3]) << 24;
    }
  }

  std::vector<Item> items;
  std::optional<Common::Guid> diskId;
  std::uint32_t physicalSectorSize = 0;
};

// "1 GiB", "1.5 MiB", "512 bytes".
std::string HumanSize(std::uint64_t bytes) {
  static const char* const kUnits[] = {"bytes", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  unsigned unit = 0;
  double value = static_cast<double>(bytes);
  while (value >= 1024 && unit + 1 < std::size(kUnits)) value /= 1024, ++unit;
  char text[32];
  if (unit == 0 || value == static_cast<double>(static_cast<std::uint64_t>(value)))
    std::snprintf(text, sizeof text, "%.0f %s", value, kUnits[unit]);
  else
    std::snprintf(text, sizeof text, "%.3g %s", value, kUnits[unit]);
  return text;
}

struct Facts {
  std::string File;
  std::uint64_t FileSize = 0;
  std::uint64_t DiskSize = 0;  // what the file system gave it
  std::uint32_t Type = 0;
  Vhdx::DiskParameters Parameters;
  Vhdx::DiskFileLayout Layout;
  Vhdx::WriteGuids Guids;
  Vhdx::BlockCensus Census;
  std::uint64_t BlocksPastEnd = 0;  // named present by the BAT, but not in the file
  bool LogReplayed = false;
  RecordingConsumer Items;
  Vhdx::ParentLocatorEntryList Locator;
  std::vector<std::string> Parents;
  std::vector<std::string> MissingParent;  // why the chain did not open
};

void Gather(const std::string& path, Facts& facts) {
  facts.File = Narrow(Absolute(path));
  Place place = PlaceOf(path, true);
  std::unique_ptr<i_file> opened = place.Folder->OpenFile(place.Name, kOpenRead);
  if (!opened) throw place.Folder->TakeError();
  Vhdx::FileHoldingDiskFile file(std::move(opened), false, facts.Items);
  facts.Type = file.GetFileType();
  facts.Parameters = file.GetDiskParameters();
  facts.Layout = file.GetLayout();
  facts.Guids = file.GetWriteGuids();
  facts.Census = file.CountBlocks();
  facts.LogReplayed = file.IsLogReplayed();
  facts.Locator = file.GetParentLocatorEntries();
  // The BAT's word is not the file's: a file cut short names blocks it no
  // longer holds.
  if (std::unique_ptr<i_file> again = place.Folder->OpenFile(place.Name, kOpenRead))
    facts.BlocksPastEnd =
        Vhdx::CheckContainer(dynamic_cast<ri_file&>(*again), false).Count(Vhdx::FindingKind::BlockPastEnd);
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    facts.FileSize = static_cast<std::uint64_t>(st.st_size);
    facts.DiskSize = static_cast<std::uint64_t>(st.st_blocks) * 512;
  }
  if (facts.Type != Vhdx::kDifferencingFile) return;
  try {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, false);
    for (const Vhdx::DiskFileHierarchy* p = disk.GetTop().GetParent(); p; p = p->GetParent())
      facts.Parents.push_back(Narrow(p->GetFullName()));
  } catch (const Common::Error& error) {
    facts.MissingParent = FailureLines(Failure(error));
    for (std::string& line : facts.MissingParent) line.erase(0, line.find_first_not_of(" "));
    if (!facts.MissingParent.empty() && facts.MissingParent[0].starts_with("vrig: "))
      facts.MissingParent[0].erase(0, 6);
  }
}

// The census in the order people read it, with the names --json uses.
std::vector<std::pair<const char*, std::uint64_t>> CensusFields(const Vhdx::BlockCensus& c) {
  return {{"blocks", c.Blocks},
          {"fully_present_blocks", c.FullyPresent},
          {"partially_present_blocks", c.PartiallyPresent},
          {"not_present_blocks", c.NotPresent},
          {"zero_blocks", c.Zero},
          {"unmapped_blocks", c.Unmapped},
          {"undefined_blocks", c.Undefined},
          {"unknown_state_blocks", c.Unknown},
          {"sector_bitmap_blocks", c.SectorBitmaps}};
}

void PrintText(const Facts& f) {
  auto size = [](const char* name, std::uint64_t bytes) {
    std::printf("%s: %s (%llu bytes)\n", name, HumanSize(bytes).c_str(), static_cast<unsigned long long>(bytes));
  };
  std::printf("file: %s\n", f.File.c_str());
  std::printf("type: %s\n", TypeName(f.Type));
  size("virtual size", f.Parameters.VirtualSize);
  size("file size", f.FileSize);
  size("size on disk", f.DiskSize);
  std::printf("logical sector size: %u\n", f.Parameters.LogicalSectorSize);
  if (f.Items.physicalSectorSize) std::printf("physical sector size: %u\n", f.Items.physicalSectorSize);
  size("block size", f.Layout.BlockSize);
  if (f.Items.diskId) std::printf("disk id: %s\n", Common::GuidToString(*f.Items.diskId).c_str());
  std::printf("data write guid: %s\n", Common::GuidToString(f.Guids.DataWriteGuid).c_str());
  std::printf("file write guid: %s\n", Common::GuidToString(f.Guids.FileWriteGuid).c_str());
  std::printf("log replayed: %s\n", f.LogReplayed ? "yes (in memory; the file is unchanged)" : "no");
  for (const auto& [name, count] : CensusFields(f.Census)) {
    std::string label = name;
    for (char& c : label)
      if (c == '_') c = ' ';
    // The first three always; the rarer states only when there are some.
    if (count || label == "blocks" || label.starts_with("fully") || label.starts_with("partially"))
      std::printf("%s: %llu\n", label.c_str(), static_cast<unsigned long long>(count));
  }
  if (f.BlocksPastEnd)
    std::printf("blocks past the end of the file: %llu (named present, but the file is shorter)\n",
                static_cast<unsigned long long>(f.BlocksPastEnd));
  std::printf("metadata items:\n");
  for (const auto& item : f.Items.items)
    std::printf("  %s  flags %u (%s)  %u bytes%s%s\n", Common::GuidToString(item.Descriptor.Id).c_str(),
                item.Descriptor.Flags, FlagsText(item.Descriptor.Flags).c_str(), item.Size,
                *ItemName(item.Descriptor) ? "  " : "", ItemName(item.Descriptor));
  if (!f.Locator.empty()) {
    std::printf("parent locator:\n");
    for (const auto& entry : f.Locator)
      std::printf("  %s = %s\n", Narrow(entry.Key).c_str(), Narrow(entry.Value).c_str());
  }
  if (!f.Parents.empty()) {
    std::printf("parents:\n");
    for (const std::string& p : f.Parents) std::printf("  %s\n", p.c_str());
  }
  if (!f.MissingParent.empty()) {
    std::printf("parent missing: %s\n", f.MissingParent[0].c_str());
    for (std::size_t i = 1; i < f.MissingParent.size(); ++i) std::printf("  %s\n", f.MissingParent[i].c_str());
  }
}

void PrintJson(const Facts& f) {
  Json json;
  json.BeginObject();
  json.Key("file").String(f.File);
  json.Key("type").String(TypeName(f.Type));
  json.Key("virtual_size").Number(f.Parameters.VirtualSize);
  json.Key("file_size").Number(f.FileSize);
  json.Key("disk_size").Number(f.DiskSize);
  json.Key("logical_sector_size").Number(f.Parameters.LogicalSectorSize);
  json.Key("physical_sector_size").Number(f.Items.physicalSectorSize);
  json.Key("block_size").Number(f.Layout.BlockSize);
  json.Key("disk_id");
  if (f.Items.diskId) json.String(Common::GuidToString(*f.Items.diskId));
  else json.Null();
  json.Key("data_write_guid").String(Common::GuidToString(f.Guids.DataWriteGuid));
  json.Key("file_write_guid").String(Common::GuidToString(f.Guids.FileWriteGuid));
  json.Key("log_replayed").Bool(f.LogReplayed);
  for (const auto& [name, count] : CensusFields(f.Census)) json.Key(name).Number(count);
  json.Key("blocks_past_end").Number(f.BlocksPastEnd);
  json.Key("metadata").BeginArray();
  for (const auto& item : f.Items.items) {
    json.BeginObject();
    json.Key("id").String(Common::GuidToString(item.Descriptor.Id));
    json.Key("flags").Number(item.Descriptor.Flags);
    json.Key("size").Number(item.Size);
    json.Key("name").String(ItemName(item.Descriptor));
    json.EndObject();
  }
  json.EndArray();
  json.Key("parent_locator").BeginObject();
  for (const auto& entry : f.Locator) json.Key(Narrow(entry.Key)).String(Narrow(entry.Value));
  json.EndObject();
  json.Key("parents").BeginArray();
  for (const std::string& p : f.Parents) json.String(p);
  json.EndArray();
  json.Key("parent_missing");
  if (f.MissingParent.empty()) {
    json.Null();
  } else {
    std::string text;
    for (const std::string& line : f.MissingParent) text += (text.empty() ? "" : "\n") + line;
    json.String(text);
  }
  json.EndObject();
  std::fputs(json.Text().c_str(), stdout);
}

}  // namespace

int VhdxInfo(std::vector<std::string> args) {
  const bool json = TakeFlag(args, "--json");
  NeedArgs(args, 1, "vrig vhdx info <file> [--json]");
  Facts facts;
  Gather(args[0], facts);
  if (json) PrintJson(facts);
  else PrintText(facts);
  return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace vrig
