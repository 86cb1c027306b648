// Vhdx::Create: lays down a new, empty dynamic container by a fixed recipe
// (4 MiB blocks, 4096-byte physical sectors, the log, metadata and BAT at
// fixed places behind the first MiB). Module-internal; the disk facade and
// the tools create containers through it.
#pragma once

#include <cstdint>
#include <string>

#include "vellumrig/folder.h"
#include "vhdx/file/file.h"

namespace Vhdx {

// The only container type the recipe makes.
inline constexpr std::uint32_t kCreateDynamic = 1;

struct CreateParameters {
  std::uint64_t VirtualSize = 0;  // bytes, a multiple of the sector size
  std::uint32_t LogicalSectorSize = 0;
};

// The sizes are the caller's to check. Raises 0x100401 for another type
// (before anything is touched) and 0x3C0005 when the folder cannot create
// the file. Nothing is rolled back: a failure after the file was made
// leaves it behind. `reserved` is not used.
void Create(rio_dir& dir, const std::u16string& name, std::uint32_t type, const CreateParameters& parameters,
            std::uint64_t reserved = 0);

// The recipe itself, on a file that Create has just made (or any file whose
// old content may go): what Create writes after making the file.
void WriteDynamicContainer(File& file, const CreateParameters& parameters);

}  // namespace Vhdx
