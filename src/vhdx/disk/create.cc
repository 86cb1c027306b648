#include "vhdx/disk/create.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/bat/bat_traits.h"
#include "vhdx/disk/container_recipe.h"
#include "vhdx/format/errors.h"
#include "vhdx/file/writeable_file.h"

namespace Vhdx {

void WriteDynamicContainer(File& file, const CreateParameters& parameters) {
  ContainerRecipe recipe;
  recipe.VirtualSize = parameters.VirtualSize;
  recipe.LogicalSectorSize = parameters.LogicalSectorSize;
  LayContainer(file, recipe);
}

void Create(rio_dir& dir, const std::u16string& name, std::uint32_t type, const CreateParameters& parameters,
            std::uint64_t) {
  if (type != kCreateDynamic) throw Common::MessageError(VR_SITE, kCodeNotImplemented);
  // Refused sizes must not leave a file behind.
  BlockGeometry::Make(kDefaultBlockSize, parameters.LogicalSectorSize, parameters.VirtualSize);

  std::unique_ptr<rio_file> host = dir.CreateFile(name, 0, 0);
  if (!host) {
    Common::Error error = Common::MessageError(VR_SITE, kCreateFailed);
    error.AddReason(dir.TakeError());
    throw error;
  }
  WriteableFile file(*host);
  WriteDynamicContainer(file, parameters);
}

}  // namespace Vhdx
