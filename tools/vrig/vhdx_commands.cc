// vrig vhdx: containers through the engine linked into vrig (not through
// the loaded module, whose one export serves machines only).
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include "cli.h"
#include "common/guid.h"
#include "vhdx/disk/disk.h"
#include "vhdx/disk/disk_deleter.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/disk/disk_file_open.h"
#include "vhdx/format/format.h"
#include "sector_stream.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

namespace Format = Vhdx::Format;

void Need(const std::vector<std::string>& args, std::size_t count, const char* form) {
  NeedArgs(args, count, std::string("vrig vhdx ") + form);
}

// The sector count of a disk, and a refusal of ranges past it.
std::uint64_t CheckRange(Vhdx::Disk& disk, std::uint64_t first, std::uint64_t count) {
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  const std::uint64_t sectors = parameters.VirtualSize / parameters.LogicalSectorSize;
  if (first > sectors || count > sectors - first)
    throw std::runtime_error("sectors " + std::to_string(first) + " to " + std::to_string(first + count) +
                             " reach past the end of the disk (" + std::to_string(sectors) + " sectors)");
  return sectors;
}

int Read(std::vector<std::string> args) {
  Need(args, 3, "read <file> <first sector> <count>");
  const std::uint64_t first = ParseNumber(args[1], "the first sector");
  const std::uint64_t count = ParseNumber(args[2], "the count");
  Place place = PlaceOf(args[0], true);
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, false);
  CheckRange(disk, first, count);
  SectorsToStdout(first, count, disk.GetDiskParameters().LogicalSectorSize,
                  [&](std::uint64_t sector, std::uint64_t n, void* buffer) { disk.Read(sector, n, buffer); });
  return 0;
}

int Write(std::vector<std::string> args) {
  const auto tracker = TrackerOption(args);
  Need(args, 2, "write <file> <first sector> [--tracker <db>]");
  const std::uint64_t sector = ParseNumber(args[1], "the first sector");
  Place place = PlaceOf(args[0], false, tracker.get());
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, true);
  CheckRange(disk, sector, 0);
  StdinToSectors(sector, disk.GetDiskParameters().LogicalSectorSize,
                 [&](std::uint64_t at, std::uint64_t n, const void* buffer) {
                   CheckRange(disk, at, n);
                   disk.Write(at, n, buffer);
                 });
  return 0;
}

// The changed sector ranges, "first count" a line, then the total.
int Changes(std::vector<std::string> args) {
  const auto tracker = TrackerOption(args);
  Need(args, 2, "changes <file> <change-id|*> [--tracker <db>]");
  Place place = PlaceOf(args[0], true);
  Vhdx::OnlyCheckingMetadataConsumer consumer;
  Vhdx::DiskImpl disk(*place.Folder, place.Name, consumer, false, tracker.get());
  const Vhdx::DiskParameters parameters = disk.GetDiskParameters();
  struct Printer : Vhd::DiskAreaCollector {
    bool Collect(const Vhd::DiskArea& area) override {
      std::printf("%llu %llu\n", static_cast<unsigned long long>(area.Offset),
                  static_cast<unsigned long long>(area.Size));
      total += area.Size;
      return true;
    }
    std::uint64_t total = 0;
  } printer;
  disk.GetChangedAreas(args[1], {0, parameters.VirtualSize / parameters.LogicalSectorSize}, printer);
  std::printf("total %llu sectors of %u bytes\n", static_cast<unsigned long long>(printer.total),
              parameters.LogicalSectorSize);
  return std::fflush(stdout) == 0 ? 0 : 1;
}

// The named file only: its parents may be other children's too. --chain
// deletes them with it.
int Remove(std::vector<std::string> args) {
  const bool chain = TakeFlag(args, "--chain"), force = TakeFlag(args, "--force");
  Need(args, 1, "rm <file> [--chain] [--force]");
  if (chain && force) throw UsageError{"--chain follows the parents of a container that opens; it cannot go with --force"};
  Place place = PlaceOf(args[0], false);
  if (chain) {
    Vhdx::DiskDeleter::Delete(*place.Folder, place.Name);
    return 0;
  }
  if (!force) {
    // Only what opens as a container (and is in nobody's hands) goes.
    try {
      std::unique_ptr<i_file> file = place.Folder->OpenFile(place.Name, kOpenRead);
      if (!file) throw place.Folder->TakeError();
      Vhdx::OnlyCheckingMetadataConsumer consumer;
      Vhdx::FileHoldingDiskFile check(std::move(file), false, consumer);
    } catch (const Common::Error& error) {
      std::fprintf(stderr, "vrig: %s\nvrig: '%s' was not deleted; --force deletes a file that does not open\n",
                   Common::ToUtf8(Common::FullText(error)).c_str(), args[0].c_str());
      return 1;
    }
  }
  place.Folder->DeleteFile(place.Name);
  Check(place.Folder->TakeError());
  return 0;
}

}  // namespace

void RefuseExisting(const std::string& path) {
  if (PathExists(path)) throw std::runtime_error("'" + path + "' exists; vrig does not overwrite files");
}

namespace {

int Run(const std::string& what, std::vector<std::string> rest) {
  if (what == "create") return VhdxCreate(std::move(rest));
  if (what == "check") return VhdxCheck(std::move(rest));
  if (what == "info") return VhdxInfo(std::move(rest));
  if (what == "read") return Read(std::move(rest));
  if (what == "write") return Write(std::move(rest));
  if (what == "import") {
    const std::uint32_t sectorSize = SectorSizeOption(rest);
    const auto tracker = TrackerOption(rest);
    std::string size;
    const bool sized = TakeOption(rest, "--size", size);
    Need(rest, 2, "import <raw image|-> <new vhdx> [--size <size>] [--sector-size 512|4096] [--tracker <db>]");
    if ((rest[0] == "-") != sized)
      throw UsageError{sized ? "--size goes with \"-\", an image from standard input"
                             : "an image from standard input (\"-\") needs --size"};
    const int status = Import(rest[0], rest[1], sectorSize, sized ? ParseSize(size) : 0);
    Track(tracker.get(), rest[1]);
    return status;
  }
  if (what == "export") {
    const auto tracker = TrackerOption(rest);
    std::string since;
    if (TakeOption(rest, "--since", since)) {
      Need(rest, 2, "export <vhdx> <raw image> --since <change-id|*> [--tracker <db>]");
      return ExportChanges(rest[0], rest[1], since, tracker.get());
    }
    if (tracker) throw UsageError{"--tracker goes with --since: a full export asks no tracker"};
    Need(rest, 2, "export <vhdx> <new raw image|-> [--since <change-id|*> --tracker <db>]");
    return Export(rest[0], rest[1]);
  }
  if (what == "serve") return VhdxServe(std::move(rest));
  if (what == "rm") return Remove(std::move(rest));
  if (what == "changes") return Changes(std::move(rest));
  throw UsageError{"unknown vhdx command '" + what + "'"};
}

// The files a command names, without its options and their values.
std::vector<std::string> FilesNamed(const std::vector<std::string>& args) {
  static const char* const kValued[] = {"--tracker", "--since", "--sector-size", "--block-size", "--size",
                                        "--parent", "--socket"};
  std::vector<std::string> files;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (std::find_if(std::begin(kValued), std::end(kValued), [&](const char* o) { return args[i] == o; }) !=
        std::end(kValued))
      ++i;
    else if (!args[i].starts_with("--"))
      files.push_back(args[i]);
  }
  return files;
}

// What the user asked for, as a failure's first words.
std::string Context(const std::string& what, const std::vector<std::string>& args) {
  const std::vector<std::string> files = FilesNamed(args);
  auto file = [&](std::size_t i) { return i < files.size() ? "'" + files[i] + "'" : std::string("the file"); };
  if (what == "import") return "cannot import " + file(0) + " into " + file(1);
  if (what == "export") return "cannot export " + file(0) + " to " + file(1);
  if (what == "info" || what == "check") return "cannot open " + file(0);
  if (what == "write") return "cannot write to " + file(0);
  if (what == "rm") return "cannot delete " + file(0);
  if (what == "changes") return "cannot list the changes of " + file(0);
  return "cannot " + what + " " + file(0);
}

}  // namespace

int VhdxCommand(const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"vhdx needs a command"};
  const std::string& what = args[0];
  std::vector<std::string> rest(args.begin() + 1, args.end());
  return InContext(Context(what, rest), [&] { return Run(what, rest); });
}

}  // namespace vrig
