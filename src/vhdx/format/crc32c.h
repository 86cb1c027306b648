// CRC-32C (Castagnoli), the checksum of VHDX headers, region tables and log
// entries. Module-internal; for the container engine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Vhdx {

// Chains over `running`, which is kept in the inverted state: start from 0,
// and the result on a whole buffer is the published CRC-32C, stored as it
// comes with no final inversion. A size of 0 gives `running` back.
std::uint32_t Crc32c(const void* data, std::size_t size, std::uint32_t running = 0);

}  // namespace Vhdx
