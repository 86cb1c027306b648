// Processor::NumberFormat: the formatters of numbers that the variant and the
// message format use. Module-internal.
//
// Made by kind: 0 the user's local form (NumberFormatWin), 1 base 16 and 2
// base 10 (NumberFormatHEX). NumberFormatICU is made from an ICU pattern.
// A formatter that cannot work writes no text; only Variant::Error leaves it.
#pragma once

#include <cstdint>
#include <memory>

#include "vellumrig/string.h"

namespace Processor {

class Variant;

class NumberFormat {
 public:
  enum Kind { kLocal = 0, kHex = 1, kDecimal = 2 };

  virtual ~NumberFormat() = default;

  // Appends the value's text to `out`. `width` is a minimum count of
  // digits for the formatters that pad; the local forms ignore it.
  virtual void Format(String& out, const Variant& value, std::int32_t width) const = 0;
  // Reads a number from the start of `text`; `position` ends at the first
  // unit that was not taken (0 when nothing was read).
  virtual double Parse(const String& text, std::int32_t& position) const {
    return Parse(text, 0, position);
  }
  // The same from `start` on.
  virtual double Parse(const String& text, std::int32_t start, std::int32_t& position) const = 0;

  // Null for an unknown kind.
  static std::unique_ptr<NumberFormat> Create(int kind);
};

}  // namespace Processor
