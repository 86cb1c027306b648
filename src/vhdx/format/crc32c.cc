#include "vhdx/format/crc32c.h"

#include <array>

namespace Vhdx {
namespace {

// The reflected table of polynomial 0x82F63B78, re-laid for a running value
// kept inverted: entry i is T[i ^ 0xFF] ^ 0xFF000000. Working on the inverted
// value makes the start value 0 and the final inversion disappear, so chained
// calls need no fix-up between them.
constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> reflected{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t v = i;
    for (int k = 0; k < 8; ++k) v = (v & 1) ? (v >> 1) ^ 0x82F63B78u : v >> 1;
    reflected[i] = v;
  }
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) table[i] = reflected[i ^ 0xFF] ^ 0xFF000000u;
  return table;
}

constexpr auto kTable = MakeTable();
static_assert(kTable[0] == 0x527D5351u);

}  // namespace

std::uint32_t Crc32c(const void* data, std::size_t size, std::uint32_t running) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  std::uint32_t value = running;
  for (std::size_t i = 0; i < size; ++i) value = kTable[(value ^ p[i]) & 0xFF] ^ (value >> 8);
  return value;
}

}  // namespace Vhdx
