// Vhdx::ContainerRecipe: the choices a new container can be made with
// beyond Create's one recipe: a fixed or differencing type, the block size,
// the physical sector size and, for a child, its parent. WriteContainer
// lays the container down; ChildOf reads a recipe off an existing parent.
// Module-internal; Create's recipe and vrig's create use it.
#pragma once

#include <cstdint>
#include <string>

#include "common/guid.h"
#include "vellumrig/folder.h"
#include "vhdx/file/file.h"
#include "vhdx/metadata/parent_locator.h"

namespace Vhdx {

inline constexpr std::uint32_t kDefaultBlockSize = 0x400000;

struct ContainerRecipe {
  enum class Kind { Dynamic, Fixed, Differencing };

  Kind Type = Kind::Dynamic;
  std::uint64_t VirtualSize = 0;  // bytes, a multiple of the logical sector size
  std::uint32_t LogicalSectorSize = 512;
  std::uint32_t PhysicalSectorSize = 4096;
  std::uint32_t BlockSize = kDefaultBlockSize;
  // Differencing only: where the parent is, its data write GUID among them.
  ParentLocatorEntryList ParentLocator;
};

// Raises 0x3C0001 naming what is wrong: a block size that is no power of
// two from 1 MiB to 256 MiB, a sector size other than 512 or 4096, a size
// of 0 or not a whole number of sectors, a differencing recipe without a
// locator (or a locator on another type); 0x3C0003 when blocks and sectors
// do not tile. Nothing is touched.
void CheckRecipe(const ContainerRecipe& recipe);

// Checks the recipe, then replaces whatever `file` held with the new
// container. A fixed container's blocks all lie in the file, which is sized
// to hold them (reading zeros); reserving the space is the caller's, who
// knows the file system.
void WriteContainer(File& file, const ContainerRecipe& recipe);

// WriteContainer without the checks, for Create, whose callers check the
// sizes their own way (and whose refusals keep their codes).
void LayContainer(File& file, const ContainerRecipe& recipe);

// The bytes a fixed container of this recipe takes; 0 for the other types.
std::uint64_t FixedFileSize(const ContainerRecipe& recipe);

// A recipe for a child at `childPath` of the container at `parentPath`
// (both relative to `dir`): the parent and its own chain must open; the
// child takes the parent's size and sector sizes and, unless `blockSize` is
// given (non-zero), its block size. The locator holds the parent's data
// write GUID and its path relative to the child's folder and absolute, both
// with the backslashes of the format. Raises 0x3C0001 for a path with a
// backslash in a name, which no locator can carry. The recipe is not
// checked: WriteContainer does that.
ContainerRecipe ChildOf(rio_dir& dir, const std::u16string& parentPath, const std::u16string& childPath,
                        std::uint32_t blockSize = 0);

}  // namespace Vhdx
