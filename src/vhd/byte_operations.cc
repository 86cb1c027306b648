#include "vhd/byte_operations.h"

#include <bit>

namespace Vhd {

// The searches mask the byte and count zeros: no loop over bits.

std::uint8_t DirectByteOperations::GetMask(unsigned start, unsigned count) const {
  return static_cast<std::uint8_t>(((1u << count) - 1) << start);
}

std::uint8_t DirectByteOperations::GetBit(std::uint64_t index) const {
  return static_cast<std::uint8_t>(1u << (index & 7));
}

unsigned DirectByteOperations::Find(std::uint8_t byte, bool value, unsigned from, unsigned to) const {
  if (from >= to) return from;
  const auto hits = static_cast<std::uint8_t>((value ? byte : ~byte) & GetMask(from, to - from));
  return hits ? static_cast<unsigned>(std::countr_zero(hits)) : to;
}

std::uint8_t ReversedByteOperations::GetMask(unsigned start, unsigned count) const {
  return static_cast<std::uint8_t>(((1u << count) - 1) << (8 - start - count));
}

std::uint8_t ReversedByteOperations::GetBit(std::uint64_t index) const {
  return static_cast<std::uint8_t>(0x80u >> (index & 7));
}

unsigned ReversedByteOperations::Find(std::uint8_t byte, bool value, unsigned from, unsigned to) const {
  if (from >= to) return from;
  const auto hits = static_cast<std::uint8_t>((value ? byte : ~byte) & GetMask(from, to - from));
  return hits ? static_cast<unsigned>(std::countl_zero(hits)) : to;
}

std::unique_ptr<ByteOperations> CreateByteOperations(bool reversed) {
  if (reversed) return std::make_unique<ReversedByteOperations>();
  return std::make_unique<DirectByteOperations>();
}

}  // namespace Vhd
