// Loads and stores of little-endian integers and of GUIDs in their on-disk
// mixed-endian form, byte by byte so that neither host order nor alignment
// matters. Module-internal; for the container engine's codecs.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/guid.h"

namespace Vhdx {

inline std::uint16_t LoadLe16(const std::uint8_t* p) {
  return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t LoadLe32(const std::uint8_t* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8 |
         static_cast<std::uint32_t>(p[2]) << 16 | static_cast<std::uint32_t>(p[3]) << 24;
}
inline std::uint64_t LoadLe64(const std::uint8_t* p) {
  return static_cast<std::uint64_t>(LoadLe32(p)) |
         static_cast<std::uint64_t>(LoadLe32(p + 4)) << 32;
}

inline void StoreLe16(std::uint8_t* p, std::uint16_t v) {
  p[0] = static_cast<std::uint8_t>(v);
  p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void StoreLe32(std::uint8_t* p, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void StoreLe64(std::uint8_t* p, std::uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<std::uint8_t>(v >> (8 * i));
}

// Data1 to Data3 little-endian, Data4 as bytes.
inline Common::Guid LoadGuid(const std::uint8_t* p) {
  Common::Guid g{LoadLe32(p), LoadLe16(p + 4), LoadLe16(p + 6), {}};
  for (std::size_t i = 0; i < 8; ++i) g.Data4[i] = p[8 + i];
  return g;
}
inline void StoreGuid(std::uint8_t* p, const Common::Guid& g) {
  StoreLe32(p, g.Data1);
  StoreLe16(p + 4, g.Data2);
  StoreLe16(p + 6, g.Data3);
  for (std::size_t i = 0; i < 8; ++i) p[8 + i] = g.Data4[i];
}

}  // namespace Vhdx
