#include "provider/disk_traits.h"

#include <cctype>

#include "common/site.h"
#include "provider/errors.h"
#include "provider/file_utilities.h"
#include "virtual_disks/disk_parameters.h"
#include "virtual_disks/geometry.h"

namespace VirtualWareRaw {

std::uint32_t FdiskBusCode(std::uint32_t busType) {
  switch (busType) {
    case 0: return 3;   // IDE
    case 1: return 1;   // SCSI
    case 2: return 11;  // SATA
    case 3: return 17;  // NVMe
    default: return 0;
  }
}

std::uint64_t GetUpperRoundedSizeInSectors(std::uint64_t size, std::uint32_t sectorSize) {
  if (sectorSize == 0) throw Common::MessageError(VR_SITE, kInvalidSectorSize);
  return size / sectorSize + (size % sectorSize != 0);
}

std::uint64_t VhdxDiskTraits::GetSizeInSectors(std::uint64_t sizeInBytes, std::uint32_t sectorSize) {
  const std::uint64_t sectors = GetUpperRoundedSizeInSectors(sizeInBytes, sectorSize);
  if (Common::Error error = VirtualDisks::CheckVhdxDiskParameters(sectors, sectorSize)) throw error;
  return sectors;
}

std::uint64_t VhdDiskTraits::GetSizeInSectors(std::uint64_t sizeInBytes, std::uint32_t sectorSize) {
  const std::uint64_t sectors = GetUpperRoundedSizeInSectors(sizeInBytes, sectorSize);
  if (Common::Error error = VirtualDisks::CheckMSDiskParameters(sectors, sectorSize, busCode_)) throw error;
  return VirtualDisks::RoundDownToGeometry(busCode_, sectors);
}

std::unique_ptr<DiskTraits> CreateDiskTraits(const std::u16string& file, std::uint32_t busType) {
  std::u16string extension = GetExtension(file);
  for (char16_t& c : extension)
    if (c < 0x80) c = static_cast<char16_t>(std::tolower(c));
  if (extension == u"vhdx" || extension == u"avhdx") return std::make_unique<VhdxDiskTraits>();
  return std::make_unique<VhdDiskTraits>(FdiskBusCode(busType));
}

}  // namespace VirtualWareRaw
