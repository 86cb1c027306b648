#include "processor/format/number_format_icu.h"

#include <algorithm>
#include <charconv>

#include <unicode/dcfmtsym.h>
#include <unicode/fmtable.h>
#include <unicode/parsepos.h>

#include "processor/format/number_format_win_options.h"
#include "processor/variant.h"

namespace Processor {

NumberFormatICU::NumberFormatICU(const String& pattern) {
  const std::string localeId = NumberFormatWinOptions::Instance()->Settings().LocaleId;
  UErrorCode status = U_ZERO_ERROR;
  auto* symbols = new icu::DecimalFormatSymbols(icu::Locale::createFromName(localeId.c_str()), status);
  // The format adopts the symbols, also when it fails.
  auto format = std::make_unique<icu::DecimalFormat>(pattern, symbols, status);
  if (U_SUCCESS(status)) format_ = std::move(format);
}

void NumberFormatICU::Format(String& out, const Variant& value, std::int32_t) const {
  if (!format_) return;
  icu::Formattable number;
  switch (value.GetType()) {
    case Variant::TLong: number.setLong(value.GetLong()); break;
    case Variant::TULong: number.setInt64(value.GetULong()); break;
    case Variant::TLong64: number.setInt64(value.GetLong64()); break;
    case Variant::TULong64: {
      // Beyond the signed range only the decimal text keeps every digit.
      char digits[24];
      const auto end = std::to_chars(digits, digits + sizeof digits, value.GetULong64()).ptr;
      UErrorCode status = U_ZERO_ERROR;
      number.setDecimalNumber(icu::StringPiece(digits, static_cast<int32_t>(end - digits)), status);
      if (U_FAILURE(status)) return;
      break;
    }
    default: number.setDouble(value.ToDouble()); break;
  }
  icu::UnicodeString text;
  UErrorCode status = U_ZERO_ERROR;
  format_->format(number, text, status);
  if (U_SUCCESS(status)) out.append(text);
}

double NumberFormatICU::Parse(const String& text, std::int32_t start,
                              std::int32_t& position) const {
  position = std::max(start, 0);
  if (!format_) return 0.0;
  icu::Formattable number;
  icu::ParsePosition where(position);
  format_->parse(text, number, where);
  if (where.getIndex() == position) return 0.0;
  UErrorCode status = U_ZERO_ERROR;
  const double result = number.getDouble(status);
  if (U_FAILURE(status)) return 0.0;
  position = where.getIndex();
  return result;
}

}  // namespace Processor
