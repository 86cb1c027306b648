// Processor::NumberFormatWin: numbers in the user's local form: grouping,
// separators and negative form of the environment's locale. Module-internal.
//
// Integers are written without fraction digits; doubles with at most the
// locale's fraction digits, trailing zeros dropped.
#pragma once

#include <cstdint>

#include "processor/format/number_format.h"
#include "processor/format/number_format_win_options.h"

namespace Processor {

class NumberFormatWin : public NumberFormat {
 public:
  NumberFormatWin();

  // Throws Variant::Error only for a value that has no number at all.
  void Format(String& out, const Variant& value, std::int32_t width) const override;
  using NumberFormat::Parse;
  // Takes a sign, digits with the locale's group separators between them,
  // and a fraction after the decimal separator.
  double Parse(const String& text, std::int32_t start, std::int32_t& position) const override;

  void FormatInteger(String& out, bool negative, std::uint64_t magnitude) const;
  // At most `maxFraction` fraction digits, trailing zeros dropped.
  void FormatDouble(String& out, double value, int maxFraction) const;
  const NumberSettings& Settings() const { return *settings_; }

 private:
  // Groups the ASCII digits of an integer part and applies the sign.
  void Compose(String& out, bool negative, const char* integer, std::size_t integerLength,
               const char* fraction, std::size_t fractionLength) const;

  AutoRef<NumberFormatWinOptions> options_;
  const NumberSettings* settings_;
};

}  // namespace Processor
