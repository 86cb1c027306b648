// Sectors between a disk and the standard streams, in large transfers: what
// the read and write commands of vrig share, whichever way they reach the
// disk. For tools/vrig only.
#pragma once

#include <cstdint>
#include <functional>

namespace vrig {

// Reads `count` sectors from `first` by `read(sector, n, buffer)` and puts
// them on standard output.
void SectorsToStdout(std::uint64_t first, std::uint64_t count, std::uint32_t sectorSize,
                     const std::function<void(std::uint64_t, std::uint64_t, void*)>& read);

// Writes standard input from `first` on by `write(sector, n, buffer)`.
// Throws when the input ends inside a sector; what came before is written.
void StdinToSectors(std::uint64_t first, std::uint32_t sectorSize,
                    const std::function<void(std::uint64_t, std::uint64_t, const void*)>& write);

}  // namespace vrig
