// vrig vhdx create: a new dynamic, fixed or differencing container, made
// under a partial name and published whole.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include "cli.h"
#include "common/site.h"
#include "host/posix_errors.h"
#include "vellumrig/error_text.h"
#include "vellumrig/file.h"
#include "vellumrig/host.h"
#include "vhdx/disk/container_recipe.h"
#include "vhdx/file/writeable_file.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

constexpr char kUsage[] =
    "vrig vhdx create <file> <size>[K|M|G|T] [--fixed] [--block-size <size>] [--sector-size 512|4096] "
    "[--tracker <db>] | --parent <parent> <child> [--block-size <size>] [--tracker <db>]";

std::uint32_t BlockSizeOption(std::vector<std::string>& args) {
  std::string text;
  if (!TakeOption(args, "--block-size", text)) return 0;
  const std::uint64_t size = ParseSize(text);
  if (size > UINT32_MAX) throw UsageError{"--block-size is out of range: " + text};
  return static_cast<std::uint32_t>(size);
}

// Takes the space of a fixed container from the file system now: that is
// what fixed is chosen for, so that writes never meet "Disk is full." later.
// A file system that cannot reserve space keeps the file sparse, and says so.
void Reserve(const std::string& path, std::uint64_t size) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  int error = fd < 0 ? errno : 0;
  if (fd >= 0) {
    if (::fallocate(fd, 0, 0, static_cast<off_t>(size)) != 0) error = errno;
    ::close(fd);
  }
  if (error == EOPNOTSUPP) {
    std::fprintf(stderr, "vrig: this file system cannot reserve space; '%s' stays sparse\n", path.c_str());
  } else if (error) {
    throw Failure(Host::detail::ErrnoError(VR_SITE, FileError::Write, error, path),
                  "cannot reserve the space of '" + path + "'");
  }
}

}  // namespace

int VhdxCreate(std::vector<std::string> args) {
  Vhdx::ContainerRecipe recipe;
  std::string parent;
  const bool child = TakeOption(args, "--parent", parent);
  if (TakeFlag(args, "--fixed")) {
    if (child) throw UsageError{"--fixed and --parent exclude each other"};
    recipe.Type = Vhdx::ContainerRecipe::Kind::Fixed;
  }
  const std::uint32_t blockSize = BlockSizeOption(args);
  const bool sectorGiven = std::find(args.begin(), args.end(), "--sector-size") != args.end();
  recipe.LogicalSectorSize = SectorSizeOption(args);
  const auto tracker = TrackerOption(args);
  NeedArgs(args, child ? 1 : 2, kUsage);
  const std::string& target = args[0];

  if (child) {
    // A child's sectors are its parent's.
    if (sectorGiven) throw UsageError{"a child takes its parent's sector size; --sector-size does not apply"};
    const auto root = Host::OpenFolder(u"/", true);
    recipe = InContext("cannot open the parent '" + parent + "'",
                       [&] { return Vhdx::ChildOf(*root, Absolute(parent), Absolute(target), blockSize); });
  } else {
    recipe.VirtualSize = ParseSize(args[1]);
    if (blockSize) recipe.BlockSize = blockSize;
  }
  // Sizes the format cannot hold are slips of the command line.
  try {
    Vhdx::CheckRecipe(recipe);
  } catch (const Common::Error& error) {
    std::string text = Common::ToUtf8(error.GetText());
    if (!text.empty() && text.back() == '.') text.pop_back();
    throw UsageError{text};
  }

  RefuseExisting(target);
  PartialFile partial(target);
  {
    Place place = PlaceOf(partial.Path(), false);
    std::unique_ptr<rio_file> host = place.Folder->CreateFile(place.Name, 0, 0);
    if (!host) throw Failure(place.Folder->TakeError(), "cannot create '" + partial.Path() + "'");
    Vhdx::WriteableFile file(*host);
    Vhdx::WriteContainer(file, recipe);
  }
  if (const std::uint64_t size = Vhdx::FixedFileSize(recipe)) Reserve(partial.Path(), size);
  partial.Publish();
  Track(tracker.get(), target);
  return 0;
}

}  // namespace vrig
