// The CRC-32 helper (the reflected 0xEDB88320 polynomial), without the
// usual final inversion: callers chain it from their own initial value.
// Used by the module.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Common {

std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t initial);

}  // namespace Common
