// VirtualDisks::ComputeGeometry: the CHS geometry a disk of a given type
// and sector count reports. Module-internal; the disk facade fills its
// SimpleDisk fields with it.
#pragma once

#include <cstdint>

#include "vellumrig/disk.h"

namespace VirtualDisks {

// Disk type 1 and 3 have a geometry; every other type gets all zeros.
Fdisk::Geometry ComputeGeometry(std::uint32_t diskType, std::uint64_t sectors);
// The sectors that whole cylinders of that geometry hold. For type 1 below
// 16066 sectors that is 1023 cylinders' worth, more than `sectors`.
std::uint64_t RoundDownToGeometry(std::uint32_t diskType, std::uint64_t sectors);

}  // namespace VirtualDisks
