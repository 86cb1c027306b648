// Any bytes opened as a container, read-only and writable, every sector
// read (all of a small disk; the first and last 4 MiB of a large one), and
// on the writable open a few writes that must read back as written, before
// and after a reopen. A thrown Common::Error is a fine answer; a crash, a
// hang, a sanitizer report, a read-only open that changes a byte or data
// that does not read back is a fault.
//
// An input that begins "vhdxfile" is the whole file. Any other input is a
// list of edits (container_edits.h) over one of four small containers with
// 1 MiB blocks, built once and kept in memory; its first byte picks which:
//   0 dynamic, 512-byte sectors, blocks fully present, zero and unmapped
//   1 differencing, partly present blocks and a live log that repairs the BAT
//   2 dynamic, 4096-byte sectors, a partial last block, an undefined block
//   3 differencing, 4096-byte sectors, fully present blocks only, no log
// Each opens a copy-on-write view of its base, so an input costs what it
// reads and writes rather than the size of the file. Bit 5 of the first
// byte asks for a census of the BAT as well.
//
// What a run costs is mostly fresh memory: under the address sanitizer
// each allocation of a MiB is new pages, several milliseconds of page
// faults on a virtual machine, and the engine takes one for each census
// and for each read or write of a differencing file with partly present
// blocks. Base 3 has none of those, and the census is the input's choice.
//
// VELLUMRIG_MAKE_SEEDS=<folder> writes the seed corpus to the folder and
// exits: the seeds in fuzz/corpus/vhdx_disk are made this way.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/memory_file.h"
#include "container_edits.h"
#include "overlay_file.h"
#include "vhd/bitmap.h"
#include "vhdx/bat/bat_entry.h"
#include "vhdx/differencing_child.h"
#include "vhdx/disk/create.h"
#include "vhdx/disk/disk_file.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/header_writer.h"
#include "vhdx/format/little_endian.h"
#include "vhdx/format/region_table_reader.h"
#include "vhdx/log_entry_builder.h"
#include "vhdx/metadata/well_known_items.h"

namespace {

namespace Format = Vhdx::Format;
namespace Log = Format::Log;

constexpr std::uint32_t kBlockSize = 1 << 20;
constexpr std::uint64_t kReadLimit = 4 << 20;  // bytes read at each end of a large disk
constexpr std::uint32_t kMaxWriteBlock = 16 << 20;
constexpr std::uint8_t kCensus = 0x20;  // selector bit: count the BAT's block states too
constexpr std::uint64_t kMaxScan = 1 << 20;  // BAT entries a write may make the engine scan

// Takes every item, so that consumers of callers are exercised too.
class TakingConsumer : public Vhdx::SelectiveMetadataConsumer {
 public:
  void Consume(const Vhdx::MetadataDescriptor&, const std::uint8_t* data, std::uint32_t size) override {
    if (size) sum_ += data[0] + data[size - 1];
  }
  bool CanConsume(const Vhdx::MetadataDescriptor&) const override { return true; }

 private:
  unsigned sum_ = 0;
};

std::string Bytes(Common::MemoryFile& memory) {
  const std::uint64_t size = memory.Size();
  return size == 0 ? std::string() : std::string(memory.GetData(), size);
}

struct Recipe {
  std::uint64_t VirtualSize;
  std::uint32_t SectorSize;
  bool Differencing;
  bool LiveLog;
  bool WholeBlocks;              // blocks 0, 1 and the last written whole, and marked fully present
  std::uint32_t Block2, Block3;  // BAT states set afterwards; 0 keeps what the writes made
};

constexpr Recipe kRecipes[4] = {
    {4 << 20, 512, false, false, false, Vhdx::PAYLOAD_BLOCK_ZERO, Vhdx::PAYLOAD_BLOCK_UNMAPPED},
    {4 << 20, 512, true, true, false, 0, Vhdx::PAYLOAD_BLOCK_ZERO},
    {(7 << 19) + 4096 * 3, 4096, false, false, false, Vhdx::PAYLOAD_BLOCK_UNDEFINED, Vhdx::PAYLOAD_BLOCK_ZERO},
    {(3 << 20) + 4096 * 7, 4096, true, false, true, Vhdx::PAYLOAD_BLOCK_UNMAPPED, 0},
};

// What the map of a range says agrees with the read of it: zeros where it
// reports no data, the file's own bytes where it reports data (unless a
// replayed log stands between the file and the reads), and the same
// sectors left to a parent.
void CheckMap(Vhdx::DiskFile& disk, std::uint64_t first, const Vhd::Bitmap& leftByRead, const std::uint8_t* bytes,
              std::uint32_t sector, const Fuzz::OverlayFile* file) {
  const std::uint64_t n = leftByRead.GetSize();
  const auto wanted = Vhd::CreateBitmap(n, true);
  static std::vector<std::uint8_t> theirs;
  disk.Map(first, *wanted, [&](const Vhdx::SectorRun& run) {
    if (run.Sector < first || run.Count > n || run.Sector - first > n - run.Count) __builtin_trap();
    const std::uint8_t* ours = bytes + (run.Sector - first) * sector;
    const std::size_t size = run.Count * sector;
    if (run.Source != Vhdx::SectorSource::kData) {
      if (std::any_of(ours, ours + size, [](std::uint8_t b) { return b != 0; })) __builtin_trap();
      return;
    }
    if (!file || disk.IsLogReplayed()) return;
    if (theirs.size() < size) theirs.resize(size);
    file->Get(run.FileOffset, theirs.data(), size);
    if (std::memcmp(ours, theirs.data(), size) != 0) __builtin_trap();
  });
  for (std::uint64_t i = 0; i < n; ++i)
    if (wanted->Get(i) != leftByRead.Get(i)) __builtin_trap();
}

void ReadRange(Vhdx::DiskFile& disk, std::uint64_t first, std::uint64_t count, std::uint32_t sector,
               const Fuzz::OverlayFile* file) {
  constexpr std::uint64_t kRequest = 8192;
  // Kept between inputs: a fresh buffer of megabytes each time costs more
  // than the read.
  static std::vector<std::uint8_t> buffer;
  for (std::uint64_t at = first; at < first + count; at += kRequest) {
    const std::uint64_t n = std::min(kRequest, first + count - at);
    if (buffer.size() < n * sector) buffer.resize(n * sector);
    const auto wanted = Vhd::CreateBitmap(n, true);
    disk.Read(at, *wanted, buffer.data());
    CheckMap(disk, at, *wanted, buffer.data(), sector, file);
  }
}

// `file`, when given, is the one the disk reads.
void ReadEverything(Vhdx::DiskFile& disk, bool census, const Fuzz::OverlayFile* file = nullptr) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint64_t sectors = parameters.VirtualSize / parameters.LogicalSectorSize;
  const std::uint64_t limit = kReadLimit / parameters.LogicalSectorSize;
  if (sectors <= 2 * limit) {
    ReadRange(disk, 0, sectors, parameters.LogicalSectorSize, file);
  } else {
    ReadRange(disk, 0, limit, parameters.LogicalSectorSize, file);
    ReadRange(disk, sectors - limit, limit, parameters.LogicalSectorSize, file);
  }
  TakingConsumer consumer;
  disk.EnumerateMetadata(consumer);
  if (census) disk.CountBlocks();
}

Fuzz::Base MakeBase(const Recipe& recipe) {
  auto memory = Common::MemoryFile::Create();
  {
    Vhdx::WriteableFile file(*memory);
    Vhdx::WriteDynamicContainer(file, {recipe.VirtualSize, recipe.SectorSize});
    // Blocks of 1 MiB keep each run small: every write allocates a block.
    VhdxTest::ModifyMetadata(file, [&](Vhdx::MetadataModifier& modifier) {
      std::uint8_t parameters[8];
      Vhdx::FileParameters{kBlockSize, recipe.Differencing ? Vhdx::FileParameters::kHasParent : 0u}.Store(parameters);
      modifier.Set(Vhdx::WellKnownItems::kFileParameters, parameters, sizeof parameters);
    });
  }
  const std::uint64_t perBlock = kBlockSize / recipe.SectorSize;
  {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    auto disk = Vhdx::OpenWritableDiskFile(*memory, consumer);
    const std::string data(perBlock * recipe.SectorSize, '\x5a');
    if (recipe.WholeBlocks) {
      disk->Write(0, perBlock, data.data());
      disk->Write(perBlock, perBlock, data.data());
      disk->Write(3 * perBlock, recipe.VirtualSize / recipe.SectorSize - 3 * perBlock, data.data());
    } else {
      disk->Write(3, 20, data.data());
      disk->Write(perBlock - 10, 40, data.data());
    }
  }
  Vhdx::WriteableFile file(*memory);
  const auto bat = Vhdx::GetRegionEntryById(Vhdx::RegionTableReader::Read(file), Format::kBatRegionGuid);
  Vhdx::HeaderInfo header = Vhdx::HeaderReader::Read(file);
  if (recipe.LiveLog) {
    header.LogGuid = {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    Vhdx::HeaderWriter::Write(file, header);
  }
  std::string bytes = Bytes(*memory);
  auto* entries = reinterpret_cast<std::uint8_t*>(bytes.data()) + bat.FileOffset;
  if (recipe.WholeBlocks) {
    for (const int block : {0, 1, 3}) {
      Vhdx::BatEntry entry(Vhdx::LoadLe64(entries + 8 * block));
      entry.SetState(Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT);
      Vhdx::StoreLe64(entries + 8 * block, entry.Raw());
    }
  }
  if (recipe.Block2) Vhdx::StoreLe64(entries + 16, recipe.Block2);
  if (recipe.Block3) Vhdx::StoreLe64(entries + 24, recipe.Block3);
  if (recipe.LiveLog) {
    // The log holds the BAT's first sector, whose first entry the file has
    // lost: only a replay finds block 0.
    const std::string entry =
        VhdxTest::LogEntry{7, 0, {{bat.FileOffset, bytes.substr(bat.FileOffset, Log::kSectorSize)}},
                           header.LogGuid, bytes.size(), bytes.size()}.Bytes();
    bytes.replace(header.LogOffset, entry.size(), entry);
    Vhdx::StoreLe64(entries, 0);
  }
  // A base that does not open, or whose log is not played, would waste
  // every input built on it.
  Fuzz::OverlayFile check(bytes);
  bool sound = false;
  Common::Error error;
  try {
    TakingConsumer consumer;
    auto disk = Vhdx::OpenReadOnlyDiskFile(check, consumer);
    ReadEverything(*disk, true);
    sound = disk->IsLogReplayed() == recipe.LiveLog;
  } catch (const Common::Error& e) {
    error = e;
  }
  if (!sound) {
    std::fprintf(stderr, "a base does not open as built (%s, %u-byte sectors): error 0x%x in %s\n",
                 recipe.Differencing ? "differencing" : "dynamic", recipe.SectorSize, error.Code(),
                 error.Site().Function ? error.Site().Function : "-");
    std::abort();
  }
  return {bytes, Fuzz::FindFields(bytes)};
}

const std::vector<Fuzz::Base>& Bases() {
  static const std::vector<Fuzz::Base> bases = [] {
    std::vector<Fuzz::Base> made;
    for (const Recipe& recipe : kRecipes) made.push_back(MakeBase(recipe));
    return made;
  }();
  return bases;
}

// Where a write went, and what the disk showed there at its close.
struct Place {
  std::uint64_t At, Count;
  std::string Shown;
};

// What the disk shows at each place: the bytes, then for each sector a 1 if
// this file holds it (a 0 leaves it to a parent). Each request loads fresh
// memory for the chunk it touches: a sector bitmap of 1 MiB in a
// differencing file, a BAT piece of 256 KiB with 4096-byte sectors. There,
// places close together are read in one request, into a buffer kept
// between runs; elsewhere each place alone, as copying the megabytes
// between would cost more.
std::vector<std::string> ShowPlaces(Vhdx::DiskFile& disk, const std::vector<Place>& places, std::uint32_t size) {
  static std::vector<char> buffer;
  const auto show = [&](std::uint64_t first, std::uint64_t count) {
    if (buffer.size() < count * size) buffer.resize(count * size);
    const auto wanted = Vhd::CreateBitmap(count, true);
    disk.Read(first, *wanted, buffer.data());
    return wanted;
  };
  const auto cut = [&](const Vhd::Bitmap& wanted, std::uint64_t skip, std::uint64_t count) {
    std::string shown(buffer.data() + skip * size, count * size);
    for (std::uint64_t i = 0; i < count; ++i) shown += wanted.Get(skip + i) ? '\0' : '\1';
    return shown;
  };
  std::uint64_t first = UINT64_MAX, end = 0;
  for (const Place& place : places) {
    first = std::min(first, place.At);
    end = std::max(end, place.At + place.Count);
  }
  std::vector<std::string> shown;
  const bool costly = disk.GetFileType() == Vhdx::kDifferencingFile || size > 512;
  if (!costly || end - first > kReadLimit / size) {
    for (const Place& place : places) shown.push_back(cut(*show(place.At, place.Count), 0, place.Count));
  } else {
    const auto wanted = show(first, end - first);
    for (const Place& place : places) shown.push_back(cut(*wanted, place.At - first, place.Count));
  }
  return shown;
}

std::string Held(const std::string& data, std::uint64_t count) { return data + std::string(count, '\1'); }

// Whether two present blocks (payload or sector bitmap) of the BAT share
// file space. The engine opens such a file and writes through it as it
// stands, so one block's writes land in the other's sectors, and what was
// written before need not read back: only then is that no fault.
// The BAT's payload blocks, sector bitmaps (one per chunk) and blocks per
// chunk; false where the parameters name no table.
bool TableShape(const Vhdx::DiskFileLayout& layout, const Vhdx::DiskParameters& parameters, std::uint64_t& blocks,
                std::uint64_t& chunks, std::uint64_t& ratio) {
  if (layout.BlockSize == 0 || parameters.LogicalSectorSize == 0) return false;
  blocks = (parameters.VirtualSize + layout.BlockSize - 1) / layout.BlockSize;
  ratio = (std::uint64_t{1} << 23) * parameters.LogicalSectorSize / layout.BlockSize;
  if (ratio == 0) return false;
  chunks = (blocks + ratio - 1) / ratio;
  return true;
}

// Whether the first allocation of a block would scan more than a million
// entries: every entry of the table that the file can hold. Under the
// sanitizer that is seconds, and a write far out or a log's growth makes a
// file hold that many; such writes are left out.
bool LongScan(const Fuzz::OverlayFile& file, const Vhdx::DiskFileLayout& layout,
              const Vhdx::DiskParameters& parameters) {
  std::uint64_t blocks, chunks, ratio;
  if (!TableShape(layout, parameters, blocks, chunks, ratio)) return false;
  const std::uint64_t held = file.End() > layout.BatOffset ? (file.End() - layout.BatOffset) / 8 : 0;
  return std::min(blocks + chunks, held) > kMaxScan;
}

bool BlocksShareSpace(const Fuzz::OverlayFile& file, const Vhdx::DiskFileLayout& layout,
                      const Vhdx::DiskParameters& parameters) {
  std::uint64_t blocks, chunks, ratio;
  if (!TableShape(layout, parameters, blocks, chunks, ratio)) return true;
  if (blocks + chunks > kMaxScan) return true;  // too many to look at: assume the worst
  std::vector<std::pair<std::uint64_t, std::uint64_t>> spans;  // offset, length
  const auto take = [&](std::uint64_t index, bool bitmap) {
    // Entries past the region or the end of the file hold no block.
    if (index >= layout.BatLength / 8 || layout.BatOffset > file.End() || index >= (file.End() - layout.BatOffset) / 8)
      return;
    std::uint8_t raw[8];
    file.Get(layout.BatOffset + index * 8, raw, sizeof raw);
    const Vhdx::BatEntry entry(Vhdx::LoadLe64(raw));
    const std::uint32_t state = entry.GetState();
    if (state == Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT || (!bitmap && state == Vhdx::PAYLOAD_BLOCK_PARTIALLY_PRESENT))
      spans.emplace_back(entry.GetFileOffset(), bitmap ? Vhdx::kSectorBitmapBlockSize : layout.BlockSize);
  };
  // Each chunk's payload entries, then its sector bitmap entry.
  for (std::uint64_t block = 0; block < blocks; ++block) take(block + block / ratio, false);
  for (std::uint64_t chunk = 0; chunk < chunks; ++chunk) take(chunk * (ratio + 1) + ratio, true);
  std::sort(spans.begin(), spans.end());
  for (std::size_t i = 1; i < spans.size(); ++i)
    if (spans[i - 1].first + spans[i - 1].second > spans[i].first) return true;
  return false;
}

void Exercise(const Fuzz::OverlayFile& patched, bool census) {
  {
    auto file = patched.Copy();
    try {
      TakingConsumer consumer;
      auto disk = Vhdx::OpenReadOnlyDiskFile(*file, consumer);
      ReadEverything(*disk, census, file.get());
    } catch (const Common::Error&) {
    }
    if (!file->SameBytes(patched)) __builtin_trap();  // read-only stays read-only
  }

  auto file = patched.Copy();
  std::vector<Place> places;
  std::uint32_t size = 0;
  bool replayed = false;
  bool shared = false;
  try {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    auto disk = Vhdx::OpenWritableDiskFile(*file, consumer);
    replayed = disk->IsLogReplayed();
    const Vhdx::DiskParameters parameters = disk->GetDiskParameters();
    const Vhdx::DiskFileLayout layout = disk->GetLayout();
    size = parameters.LogicalSectorSize;
    const std::uint64_t sectors = parameters.VirtualSize / size;
    if (layout.BlockSize > kMaxWriteBlock || sectors == 0) return;
    const bool sharedAtOpen = BlocksShareSpace(*file, layout, parameters);
    std::map<std::uint64_t, std::string> latest;  // sector -> the last bytes written there
    for (const std::uint64_t at : {std::uint64_t{0}, sectors / 2 - std::min<std::uint64_t>(sectors / 2, 3), sectors - 1}) {
      const std::uint64_t count = std::min<std::uint64_t>(7, sectors - at);
      if (LongScan(*file, layout, parameters)) break;
      std::string data(count * size, '\0');
      for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(at + i * 13);
      try {
        disk->Write(at, count, data.data());
      } catch (const Common::Error&) {
        continue;
      }
      for (std::uint64_t i = 0; i < count; ++i) latest[at + i] = data.substr(i * size, size);
      places.push_back({at, count, {}});
    }
    if (places.empty()) return;
    // Writes allocate blocks, and may do so where a block already points.
    shared = sharedAtOpen || BlocksShareSpace(*file, layout, parameters);
    const std::vector<std::string> shown = ShowPlaces(*disk, places, size);
    for (std::size_t p = 0; p < places.size(); ++p) {
      Place& place = places[p];
      place.Shown = shown[p];
      std::string data;
      for (std::uint64_t i = 0; i < place.Count; ++i) data += latest[place.At + i];
      // Every sector reads back as last written, held by this file.
      if (!shared && place.Shown != Held(data, place.Count)) __builtin_trap();
    }
  } catch (const Common::Error&) {
    return;
  }
  if (places.empty()) return;
  // What was written opens again and reads back. A log that the writable
  // open played may have written anything anywhere, the file identifier
  // included; only then may the file no longer open.
  std::vector<std::string> shown;
  try {
    Vhdx::OnlyCheckingMetadataConsumer consumer;
    auto reopened = Vhdx::OpenReadOnlyDiskFile(*file, consumer);
    shown = ShowPlaces(*reopened, places, size);
  } catch (const Common::Error&) {
    if (!replayed && !shared) __builtin_trap();
    return;
  }
  for (std::size_t p = 0; p < places.size(); ++p)
    if (shown[p] != places[p].Shown) __builtin_trap();
}

// The seed corpus: one plain input per base, then pointed edits of each
// structure, named for what they do.
Fuzz::Seeds MakeSeeds() {
  Fuzz::Seeds seeds;
  using Fuzz::EditWriter;
  const auto on = [&](unsigned base, std::uint8_t flags = 0) { return EditWriter(Bases()[base].Fields, base | flags); };
  const auto add = [&](const std::string& name, const EditWriter& writer) { seeds.emplace_back(name, writer.Bytes()); };
  const std::uint64_t mib = Format::kMiB;
  const std::uint64_t size0 = Bases()[0].Image.size();

  add("dynamic", on(0));
  add("differencing_with_log", on(1));
  add("dynamic_4096", on(2));
  add("differencing_4096", on(3));
  add("dynamic_census", on(0, kCensus));
  add("differencing_census", on(1, kCensus));
  // Headers.
  add("header_newer_moves_log", on(1).Set("header0.sequence", 100).Set("header0.log_offset", 2 * mib));
  add("header_one_broken", on(1).Set("header1.signature", 0));
  add("header_version_2", on(0).Set("header0.version", 2).Set("header1.version", 2));
  add("header_log_length_0", on(1).Set("header0.log_length", 0).Set("header1.log_length", 0));
  add("header_log_guid_0", on(1).Set("header0.log_guid.lo", 0).Set("header0.log_guid.hi", 0).Set("header1.log_guid.lo", 0).Set("header1.log_guid.hi", 0));
  add("header_checksum_stale", on(0, Fuzz::kKeepHeaderChecksums).Edit("header0.sequence", Fuzz::kAdd, 5));
  add("header_log_version_1", on(1).Set("header0.log_version", 1).Set("header1.log_version", 1));
  add("header_copied_over_other", on(0, Fuzz::kKeepHeaderChecksums).Copy(Format::kHeaderOffsets[1], Format::kHeaderOffsets[0], 4096));
  // Region tables.
  add("regions_duplicate_entry", on(0).Set("regions0.count", 3).From("regions0.entry2.guid.lo", "regions0.entry0.guid.lo").From("regions0.entry2.guid.hi", "regions0.entry0.guid.hi").Set("regions0.entry2.offset", 5 * mib).Set("regions0.entry2.length", mib));
  add("regions_bat_over_log", on(0).Set("regions0.entry1.offset", mib).Set("regions1.entry1.offset", mib));
  add("regions_metadata_length_0", on(0).Set("regions0.entry0.length", 0));
  add("regions_first_broken", on(3, Fuzz::kKeepRegionChecksums).Set("regions0.signature", 0));
  add("regions_count_huge", on(0).Edit("regions0.count", Fuzz::kMagic, 12).Edit("regions1.count", Fuzz::kMagic, 12));
  add("regions_unknown_optional", on(2).Set("regions0.count", 3).Set("regions0.entry2.guid.lo", 0x1234).Set("regions0.entry2.offset", 7 * mib).Set("regions0.entry2.length", mib).Set("regions0.entry2.required", 0));
  add("regions_unknown_required", on(2).Set("regions0.count", 3).Set("regions0.entry2.guid.lo", 0x1234).Set("regions0.entry2.offset", 7 * mib).Set("regions0.entry2.length", mib).Set("regions0.entry2.required", 1));
  add("regions_bat_unaligned", on(0).Edit("regions0.entry1.offset", Fuzz::kAdd, 4096));
  // The metadata table and its items.
  add("metadata_count_0", on(0).Set("metadata.count", 0));
  add("metadata_item_in_table_area", on(0).Set("metadata.entry0.offset", 0x100));
  add("metadata_item_past_region", on(1).Set("metadata.entry1.length", 0x200000));
  add("metadata_duplicate_item", on(0).From("metadata.entry1.id.lo", "metadata.entry0.id.lo").From("metadata.entry1.id.hi", "metadata.entry0.id.hi"));
  add("metadata_signature", on(0).Set("metadata.signature", 0));
  add("metadata_unknown_required", on(0).Edit("metadata.entry2.id.lo", Fuzz::kXor, 1).Set("metadata.entry2.flags", Format::kMetadataIsRequired));
  add("metadata_user_flag", on(3).Set("metadata.entry0.flags", Format::kMetadataIsUser));
  add("item_block_size_4k", on(0).Set("item.block_size", 4096));
  add("item_block_size_odd", on(1).Set("item.block_size", 3 * mib));
  add("item_block_size_256m", on(0).Set("item.block_size", 256 * mib));
  add("item_virtual_size_0", on(0).Set("item.virtual_size", 0));
  add("item_virtual_size_huge", on(2).Set("item.virtual_size", std::uint64_t{1} << 46));
  add("item_virtual_size_odd", on(0).Set("item.virtual_size", 4 * mib + 512));
  add("item_sector_1024", on(0).Set("item.logical_sector_size", 1024));
  add("item_physical_sector_0", on(3).Set("item.physical_sector_size", 0));
  add("item_has_parent_on_dynamic", on(0).Set("item.file_flags", 2));
  add("item_leave_allocated", on(1).Set("item.file_flags", 3));
  // BAT entries of each state.
  add("bat_undefined", on(0, kCensus).Set("bat0", mib * 4 + Vhdx::PAYLOAD_BLOCK_UNDEFINED));
  add("bat_zero_with_offset", on(1, kCensus).Edit("bat0", Fuzz::kXor, 7 ^ Vhdx::PAYLOAD_BLOCK_ZERO));
  add("bat_present_in_header_area", on(0, kCensus).Set("bat1", Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT));
  add("bat_present_past_end", on(2, kCensus).Set("bat1", (64 * mib) | Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT));
  add("bat_shared_block", on(0, kCensus).From("bat2", "bat0"));
  add("bat_state_4", on(0, kCensus).Set("bat0", (4 * mib) | 4));
  add("bat_partial_in_dynamic", on(0, kCensus).Edit("bat1", Fuzz::kXor, Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT ^ Vhdx::PAYLOAD_BLOCK_PARTIALLY_PRESENT));
  add("bat_reserved_bits", on(3, kCensus).Edit("bat0", Fuzz::kXor, 0xfff8));
  add("bat_unmapped_with_offset", on(3, kCensus).From("bat2", "bat1").Edit("bat2", Fuzz::kXor, Vhdx::PAYLOAD_BLOCK_FULLY_PRESENT ^ Vhdx::PAYLOAD_BLOCK_UNMAPPED));
  // Sector bitmaps.
  add("bitmap_missing", on(1).Set("bat.bitmap0", 0));
  add("bitmap_at_block", on(3).From("bat.bitmap0", "bat0").Edit("bat1", Fuzz::kXor, 1));
  add("bitmap_for_full_block", on(3).Edit("bat0", Fuzz::kXor, 1));
  add("bitmap_all_set", on(1).Set("bitmap.block0", ~std::uint64_t{0}).Set("bitmap.block1", ~std::uint64_t{0}));
  add("bitmap_cleared", on(1).Set("bitmap.block0", 0).Set("bitmap.block0_end", 0));
  // Log entries.
  add("log_descriptor_count", on(1).Set("log.count", 0x7fffffff));
  add("log_descriptor_count_2", on(1).Set("log.count", 2).Set("log.length", 3 * 4096));
  add("log_target_past_end", on(1).Set("log.desc0.offset", 16 * mib));
  add("log_target_identifier", on(1).Set("log.desc0.offset", 0));
  add("log_target_unaligned", on(1).Edit("log.desc0.offset", Fuzz::kAdd, 512));
  add("log_sequence_mismatch", on(1).Edit("log.desc0.sequence", Fuzz::kAdd, 1));
  add("log_zero_descriptor", on(1).Set("log.desc0.signature", Log::kZeroDescriptorSignature).Set("log.desc0.leading", 8192).Set("log.length", 4096));
  add("log_data_signature", on(1).Set("log.data0.signature", 0));
  add("log_flushed_grows_file", on(1).Edit("log.flushed", Fuzz::kAdd, 3 * mib).Edit("log.last", Fuzz::kAdd, 3 * mib));
  add("log_grows_file_by_gigabytes", on(1).Set("item.virtual_size", std::uint64_t{1} << 46).Edit("log.last", Fuzz::kAdd, std::uint64_t{3} << 30));
  add("log_zeroes_gigabytes", on(1).Set("log.desc0.signature", Log::kZeroDescriptorSignature).Set("log.desc0.leading", std::uint64_t{3} << 30).Set("log.length", 4096));
  add("log_length_short", on(1).Set("log.length", 4096));
  add("log_tail_moved", on(1).Set("log.tail", 4096));
  add("log_guid_mismatch", on(1).Edit("log.guid.lo", Fuzz::kXor, 1));
  add("log_checksum_stale", on(1, Fuzz::kKeepLogChecksum).Edit("log.sequence", Fuzz::kAdd, 1));
  add("log_in_dynamic", on(0).Set("header0.log_guid.lo", 5).Set("header1.log_guid.lo", 5).Copy(0x100000, 0x100000, 8));
  // The file's size and raw bytes.
  add("file_cut_data", on(0).Resize(static_cast<std::uint32_t>(size0 - mib)));
  add("file_cut_bat", on(0).Resize(static_cast<std::uint32_t>(3 * mib + mib / 2)));
  add("file_grown", on(1).Resize(static_cast<std::uint32_t>(Bases()[1].Image.size() + mib + mib / 2)));
  add("raw_in_data_block", on(0).Raw(static_cast<std::uint32_t>(4 * mib + 4096), std::string(16, '\x77')));
  add("raw_identifier", on(2).Raw(0, "vhdxfilf"));
  return seeds;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Fuzz::MakeSeedsIfAsked(MakeSeeds);
  Bases();
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
  return Fuzz::MutateEdits(data, size, maxSize, seed, size ? Bases()[data[0] & 3].Fields.size() : 0);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  if (Fuzz::IsWholeImage(data, size)) {
    const std::string image(reinterpret_cast<const char*>(data), size);
    Exercise(Fuzz::OverlayFile(image), true);
    return 0;
  }
  const Fuzz::Base& base = Bases()[data[0] & 3];
  Fuzz::OverlayFile patched(base.Image);
  Fuzz::ApplyEdits(patched, base.Fields, data[0], data + 1, size - 1);
  Exercise(patched, data[0] & kCensus);
  return 0;
}
