#include "vhd/block_bitmap_arrays.h"

#include "vhd/single_disk_area_enumerator.h"

namespace Vhdx {

std::shared_ptr<Vhd::Enumerator<Vhd::DiskArea>> BlockDiskAreaEnumeratorArray::Get(std::uint32_t block) {
  return std::make_shared<SingleDiskAreaEnumerator>(traits_->GetArea(block));
}

}  // namespace Vhdx
