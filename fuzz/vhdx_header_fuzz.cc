// A container's first megabyte through the checks and readers every open
// starts with: the file identifier, the two headers and the two region
// tables. A thrown Common::Error is a fine answer; anything else is a fault.
//
// An input that begins "vhdxfile" is the first megabyte itself (cut or
// zero-padded to 1 MiB), run twice: as it is, and with the checksums of
// both headers and both region tables made to match, so that the parsers
// behind them are reached too. Any other input is a list of edits
// (container_edits.h) over the first megabyte of a valid container: named
// fields (sequence numbers, log offset and length, versions, region counts,
// offsets, lengths, GUIDs and flags) changed, with checksums made to match
// or kept as the selector byte says. Random bytes over a megabyte stop
// finding anything after about a thousand inputs; edits of fields keep
// reaching new combinations.
//
// VELLUMRIG_MAKE_SEEDS=<folder> writes the edit seeds to the folder and
// exits: those in fuzz/corpus/vhdx_header are made this way.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/memory_file.h"
#include "container_edits.h"
#include "overlay_file.h"
#include "vhdx/disk/create.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx/format/file_validator.h"
#include "vhdx/format/format.h"
#include "vhdx/format/header_reader.h"
#include "vhdx/format/region_table_reader.h"

namespace {

namespace Format = Vhdx::Format;

void Exercise(ri_file& host) {
  Vhdx::ReadOnlyFile file(host);
  try {
    Vhdx::FileValidator::CheckVersion(file);
  } catch (const Common::Error&) {
  }
  try {
    Vhdx::HeaderReader::Read(file);
  } catch (const Common::Error&) {
  }
  try {
    const Vhdx::RegionList regions = Vhdx::RegionTableReader::Read(file);
    if (regions.size() > Format::kMaxRegionEntries) __builtin_trap();
    Vhdx::GetRegionEntryById(regions, Format::kBatRegionGuid);
    Vhdx::GetRegionEntryById(regions, Format::kMetadataRegionGuid);
  } catch (const Common::Error&) {
  }
}

// The first megabyte of a valid dynamic container, and its fields.
const Fuzz::Base& TheBase() {
  static const Fuzz::Base base = [] {
    auto memory = Common::MemoryFile::Create();
    Vhdx::WriteableFile file(*memory);
    Vhdx::WriteDynamicContainer(file, {4 << 20, 512});
    std::string image(memory->GetData(), Format::kMiB);
    return Fuzz::Base{image, Fuzz::FindFields(image)};
  }();
  return base;
}

Fuzz::Seeds MakeSeeds() {
  using Fuzz::EditWriter;
  const auto& fields = TheBase().Fields;
  Fuzz::Seeds seeds;
  const auto on = [&](std::uint8_t flags = 0) { return EditWriter(fields, flags); };
  const auto add = [&](const std::string& name, const EditWriter& writer) { seeds.emplace_back(name, writer.Bytes()); };
  const std::uint64_t mib = Format::kMiB;
  add("edits_none", on());
  add("header_second_newer", on().Set("header1.sequence", 9));
  add("header_same_sequence", on().From("header1.sequence", "header0.sequence").Set("header1.log_offset", 3 * mib));
  add("header_stale_checksum", on(Fuzz::kKeepHeaderChecksums).Edit("header1.sequence", Fuzz::kAdd, 1));
  add("header_both_broken", on().Set("header0.signature", 0).Set("header1.signature", 1));
  add("header_version_0", on().Set("header0.version", 0).Set("header1.version", 0));
  add("header_log_unaligned", on().Edit("header0.log_offset", Fuzz::kAdd, 4096).Edit("header1.log_length", Fuzz::kAdd, 4096));
  add("header_log_past_4g", on().Edit("header0.log_offset", Fuzz::kMagic, 14).Edit("header1.log_offset", Fuzz::kMagic, 14));
  add("header_log_in_first_mib", on().Set("header0.log_offset", 0).Set("header1.log_offset", 0));
  add("header_log_version", on().Set("header0.log_version", 1));
  add("identifier_broken", on().Set("identifier.signature", 0));
  add("regions_count_0", on().Set("regions0.count", 0).Set("regions1.count", 0));
  add("regions_count_max", on().Set("regions0.count", Format::kMaxRegionEntries));
  add("regions_count_past_max", on().Set("regions0.count", Format::kMaxRegionEntries + 1));
  add("regions_count_huge", on().Edit("regions1.count", Fuzz::kMagic, 12).Set("regions0.signature", 0));
  add("regions_first_stale", on(Fuzz::kKeepRegionChecksums).Set("regions0.entry0.length", 0));
  add("regions_tables_differ", on().Set("regions1.entry0.offset", 8 * mib));
  add("regions_duplicate", on().Set("regions0.count", 3).From("regions0.entry2.guid.lo", "regions0.entry1.guid.lo").From("regions0.entry2.guid.hi", "regions0.entry1.guid.hi"));
  add("regions_overlap", on().From("regions0.entry1.offset", "regions0.entry0.offset"));
  add("regions_offset_zero", on().Set("regions0.entry0.offset", 0));
  add("regions_offset_unaligned", on().Edit("regions0.entry1.offset", Fuzz::kAdd, 512));
  add("regions_length_huge", on().Edit("regions0.entry1.length", Fuzz::kMagic, 12));
  add("regions_unknown_required", on().Edit("regions0.entry0.guid.lo", Fuzz::kXor, 1).Set("regions0.entry0.required", 1));
  add("regions_unknown_optional", on().Edit("regions0.entry0.guid.hi", Fuzz::kXor, 1).Set("regions0.entry0.required", 0));
  add("regions_reserved", on().Set("regions0.reserved", 1));
  return seeds;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Fuzz::MakeSeedsIfAsked(MakeSeeds);
  TheBase();
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t maxSize,
                                               unsigned seed) {
  return Fuzz::MutateEdits(data, size, maxSize, seed, TheBase().Fields.size());
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  if (Fuzz::IsWholeImage(data, size)) {
    std::string bytes(reinterpret_cast<const char*>(data), std::min<std::size_t>(size, Format::kMiB));
    bytes.resize(Format::kMiB, '\0');
    Fuzz::OverlayFile file(bytes);
    Exercise(*file.Copy());
    for (const std::uint64_t offset : Format::kHeaderOffsets) Fuzz::Seal(file, offset, Format::kHeaderSize);
    for (const std::uint64_t offset : Format::kRegionTableOffsets) Fuzz::Seal(file, offset, Format::kRegionTableSize);
    Exercise(file);
    return 0;
  }
  const Fuzz::Base& base = TheBase();
  Fuzz::OverlayFile file(base.Image);
  Fuzz::ApplyEdits(file, base.Fields, data[0], data + 1, size - 1);
  Exercise(file);
  return 0;
}
