#include "common/crc32.h"

#include <array>

namespace Common {
namespace {

constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t v = i;
    for (int k = 0; k < 8; ++k) v = (v & 1) ? (v >> 1) ^ 0xEDB88320u : v >> 1;
    table[i] = v;
  }
  return table;
}

constexpr auto kTable = MakeTable();

}  // namespace

std::uint32_t Crc32(const void* data, std::size_t size, std::uint32_t initial) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  std::uint32_t value = initial;
  for (std::size_t i = 0; i < size; ++i) value = kTable[(p[i] ^ value) & 0xFF] ^ (value >> 8);
  return value;
}

}  // namespace Common
