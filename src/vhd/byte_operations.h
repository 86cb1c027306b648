// Vhd::ByteOperations: where bit position p of a byte lies, as a strategy of
// the bitmap. Module-internal; only the bitmap implementation calls it.
//
// Direct: position 0 is the low bit (the VHDX order). Reversed: position 0
// is the high bit.
#pragma once

#include <cstdint>
#include <memory>

namespace Vhd {

class ByteOperations {
 public:
  virtual ~ByteOperations() = default;
  // The byte with `count` bits set from `start`; start + count <= 8.
  virtual std::uint8_t GetMask(unsigned start, unsigned count) const = 0;
  // The byte with the one bit of position index & 7.
  virtual std::uint8_t GetBit(std::uint64_t index) const = 0;
  // The first position in [from, to) where `byte` holds `value`, else `to`;
  // `from` itself when from >= to. to <= 8.
  virtual unsigned Find(std::uint8_t byte, bool value, unsigned from, unsigned to) const = 0;
};

class DirectByteOperations : public ByteOperations {
 public:
  std::uint8_t GetMask(unsigned start, unsigned count) const override;
  std::uint8_t GetBit(std::uint64_t index) const override;
  unsigned Find(std::uint8_t byte, bool value, unsigned from, unsigned to) const override;
};

class ReversedByteOperations : public ByteOperations {
 public:
  std::uint8_t GetMask(unsigned start, unsigned count) const override;
  std::uint8_t GetBit(std::uint64_t index) const override;
  unsigned Find(std::uint8_t byte, bool value, unsigned from, unsigned to) const override;
};

std::unique_ptr<ByteOperations> CreateByteOperations(bool reversed);

}  // namespace Vhd
