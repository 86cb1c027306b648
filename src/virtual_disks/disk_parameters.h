// Whether a wanted disk can exist at all, before anything is made: the
// checks of a VHDX container and of the older disk format's size rules.
// Module-internal; the provider asks before it adds a disk to a machine.
#pragma once

#include <cstdint>

#include "vellumrig/error.h"

namespace VirtualDisks {

// 512- or 4096-byte sectors, at most 64 TiB. The first failure is returned.
Common::Error CheckVhdxDiskParameters(std::uint64_t sectors, std::uint32_t sectorSize);
// 512-byte sectors, adapter 1 or 3, 6144 to 4278190080 sectors.
Common::Error CheckMSDiskParameters(std::uint64_t sectors, std::uint32_t sectorSize, std::uint32_t adapter);

}  // namespace VirtualDisks
