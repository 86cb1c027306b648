// VirtualDisks::ComputeGeometry: the CHS geometry a disk of a given type
// and sector count reports. Module-internal; the disk facade fills its
// SimpleDisk fields with it.
#pragma once

#include <cstdint>

#include "vellumrig/disk.h"

namespace VirtualDisks {

// Disk type 1 and 3 have a geometry; every other type gets all zeros.
Fdisk::Geometry ComputeGeometry(std::uint32_t diskType, std::uint64_t sectors);

}  // namespace VirtualDisks
