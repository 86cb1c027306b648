// Processor::NumberFormatHEX: integers in base 16 or base 10, zero-padded to
// a width, and parsing with an optional sign and "0x". Module-internal.
//
// Values are written as their unsigned bit patterns: a TLong of -1 is
// "FFFFFFFF", a TLong64 of -1 in base 10 is "18446744073709551615".
#pragma once

#include <cstddef>
#include <cstdint>

#include "processor/format/number_format.h"

namespace Processor {

class NumberFormatHEX : public NumberFormat {
 public:
  explicit NumberFormatHEX(int base) : base_(base) {}

  int Base() const { return base_; }

  void Format(String& out, const Variant& value, std::int32_t width) const override;
  using NumberFormat::Parse;
  double Parse(const String& text, std::int32_t start, std::int32_t& position) const override;

  // Writes the digits into `buffer` without a terminator; returns their
  // count, 0 when the value is no integer or the buffer is too small.
  std::size_t FormatToBuffer(char16_t* buffer, std::size_t capacity, const Variant& value,
                             std::int32_t width) const;
  // The same for a plain unsigned value.
  std::size_t FormatBits(char16_t* buffer, std::size_t capacity, std::uint64_t bits,
                         std::int32_t width) const;

 private:
  int base_;
};

}  // namespace Processor
