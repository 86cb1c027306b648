#include "virtual_disks/geometry.h"

namespace VirtualDisks {
namespace {

// Type 1: 63 sectors a track and 255 heads; below 16066 sectors the
// cylinders stay at 1023, so the count jumps from 1023 to 1 there. Hosts
// compare with that jump, so it stays.
Fdisk::Geometry TypeOne(std::uint64_t sectors) {
  return {63, 254, static_cast<std::uint32_t>(sectors < 16066 ? 1023 : sectors / 16065)};
}

Fdisk::Geometry TypeThree(std::uint64_t sectors) {
  const std::uint64_t step = sectors < 0x11000 ? 68 : sectors < 0x7C000 ? 496 : sectors < 66059280 ? 1008 : 4080;
  const std::uint64_t r = sectors / step * step;
  const std::uint8_t perTrack = r < 0x11000 ? 17 : r < 0x7C000 ? 31 : 63;
  const std::uint8_t maxHead = r < 0x11000    ? 3
                               : r < 0xFC000  ? 15
                               : r < 0x1F83F0 ? 31
                               : r < 0x3F03F0 ? 63
                               : r < 0x7E03F0 ? 127
                                              : 254;
  return {perTrack, maxHead, static_cast<std::uint32_t>(sectors / ((maxHead + 1u) * perTrack))};
}

}  // namespace

Fdisk::Geometry ComputeGeometry(std::uint32_t diskType, std::uint64_t sectors) {
  if (diskType == 1) return TypeOne(sectors);
  if (diskType == 3) return TypeThree(sectors);
  return {};
}

std::uint64_t RoundDownToGeometry(std::uint32_t diskType, std::uint64_t sectors) {
  const Fdisk::Geometry g = ComputeGeometry(diskType, sectors);
  return std::uint64_t{g.Cylinders} * (g.MaxHead + 1u) * g.SectorsPerTrack;
}

}  // namespace VirtualDisks
