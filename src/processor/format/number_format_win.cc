#include "processor/format/number_format_win.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string>

#include "processor/variant.h"

namespace Processor {

namespace {

// More fraction digits than a double holds would only show noise.
constexpr int kMostFractionDigits = 17;

void AppendAscii(String& out, const char* text, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) out.append(static_cast<char16_t>(text[i]));
}

bool StartsAt(const String& text, std::int32_t at, const String& what) {
  return !what.isEmpty() && text.compare(at, what.length(), what) == 0;
}

}  // namespace

NumberFormatWin::NumberFormatWin()
    : options_(NumberFormatWinOptions::Instance()), settings_(&options_->Settings()) {}

void NumberFormatWin::Compose(String& out, bool negative, const char* integer,
                              std::size_t integerLength, const char* fraction,
                              std::size_t fractionLength) const {
  const NumberSettings& s = *settings_;
  String body;
  // Group sizes from the right: the first group, then the repeating one.
  const std::size_t first = s.Grouping == 32 ? 3 : static_cast<std::size_t>(s.Grouping);
  const std::size_t rest = s.Grouping == 32 ? 2 : first;
  std::size_t nextBoundary = first;  // digits right of the next separator
  std::size_t separators = 0;
  if (first != 0) {
    while (nextBoundary < integerLength) {
      ++separators;
      nextBoundary += rest;
    }
    nextBoundary -= rest;
  }
  for (std::size_t i = 0; i < integerLength; ++i) {
    if (separators > 0 && integerLength - i == nextBoundary) {
      body.append(s.ThousandSeparator);
      --separators;
      nextBoundary -= rest;
    }
    body.append(static_cast<char16_t>(integer[i]));
  }
  if (fractionLength > 0) {
    body.append(s.DecimalSeparator);
    AppendAscii(body, fraction, fractionLength);
  }
  if (!negative) {
    out.append(body);
    return;
  }
  switch (s.NegativeOrder) {
    case 0: out.append(u'(').append(body).append(u')'); break;
    case 2: out.append(s.NegativeSign).append(u' ').append(body); break;
    case 3: out.append(body).append(s.NegativeSign); break;
    case 4: out.append(body).append(u' ').append(s.NegativeSign); break;
    default: out.append(s.NegativeSign).append(body); break;
  }
}

void NumberFormatWin::FormatInteger(String& out, bool negative, std::uint64_t magnitude) const {
  char digits[24];
  const auto end = std::to_chars(digits, digits + sizeof digits, magnitude).ptr;
  const auto length = static_cast<std::size_t>(end - digits);
  if (!settings_->Usable) {
    if (negative) out.append(u'-');
    AppendAscii(out, digits, length);
    return;
  }
  Compose(out, negative && magnitude != 0, digits, length, nullptr, 0);
}

void NumberFormatWin::FormatDouble(String& out, double value, int maxFraction) const {
  // to_chars, not printf: the host may have set a C locale with another
  // decimal point.
  char text[400];
  if (!std::isfinite(value)) {
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    AppendAscii(out, text, static_cast<std::size_t>(end - text));
    return;
  }
  if (!settings_->Usable) {
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 9).ptr;
    AppendAscii(out, text, static_cast<std::size_t>(end - text));
    return;
  }
  const int digits = std::clamp(maxFraction, 0, kMostFractionDigits);
  const auto result =
      std::to_chars(text, text + sizeof text, std::fabs(value), std::chars_format::fixed, digits);
  if (result.ec != std::errc()) return;
  const char* begin = text;
  const char* end = result.ptr;
  const char* point = std::find(begin, end, '.');
  const char* fraction = point == end ? end : point + 1;
  const char* fractionEnd = end;
  while (fractionEnd > fraction && fractionEnd[-1] == '0') --fractionEnd;
  // A value that rounds to zero shows no sign.
  const bool zero = std::all_of(begin, fractionEnd, [](char c) { return c == '0' || c == '.'; });
  Compose(out, value < 0 && !zero, text, static_cast<std::size_t>(point - begin), fraction,
          static_cast<std::size_t>(fractionEnd - fraction));
}

void NumberFormatWin::Format(String& out, const Variant& value, std::int32_t) const {
  switch (value.GetType()) {
    case Variant::TLong: {
      const std::int64_t v = value.GetLong();
      FormatInteger(out, v < 0, v < 0 ? static_cast<std::uint64_t>(-v) : static_cast<std::uint64_t>(v));
      return;
    }
    case Variant::TULong: FormatInteger(out, false, value.GetULong()); return;
    case Variant::TLong64: {
      const std::int64_t v = value.GetLong64();
      // The magnitude of INT64_MIN does not fit a signed value.
      FormatInteger(out, v < 0, v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v));
      return;
    }
    case Variant::TULong64: FormatInteger(out, false, value.GetULong64()); return;
    default: FormatDouble(out, value.ToDouble(), settings_->Digits); return;
  }
}

double NumberFormatWin::Parse(const String& text, std::int32_t start,
                              std::int32_t& position) const {
  const NumberSettings& s = *settings_;
  std::string ascii;
  std::int32_t at = std::max(start, 0);
  position = at;
  if (at < text.length() && (text.charAt(at) == u'-' || text.charAt(at) == u'+')) {
    if (text.charAt(at) == u'-') ascii += '-';
    ++at;
  } else if (s.NegativeSign != String(u"-") && StartsAt(text, at, s.NegativeSign)) {
    ascii += '-';
    at += s.NegativeSign.length();
  }
  auto isDigit = [&text](std::int32_t i) {
    return i < text.length() && text.charAt(i) >= u'0' && text.charAt(i) <= u'9';
  };
  bool any = false;
  while (true) {
    if (isDigit(at)) {
      ascii += static_cast<char>(text.charAt(at++));
      any = true;
      continue;
    }
    // A group separator counts only between digits.
    const std::int32_t sep = s.ThousandSeparator.length();
    if (any && s.Grouping != 0 && StartsAt(text, at, s.ThousandSeparator) && isDigit(at + sep)) {
      at += sep;
      continue;
    }
    break;
  }
  if (!any) return 0.0;
  const std::int32_t dec = s.DecimalSeparator.length();
  if (StartsAt(text, at, s.DecimalSeparator) && isDigit(at + dec)) {
    ascii += '.';
    at += dec;
    while (isDigit(at)) ascii += static_cast<char>(text.charAt(at++));
  }
  double value = 0.0;
  const auto [end, error] = std::from_chars(ascii.data(), ascii.data() + ascii.size(), value);
  (void)end;
  if (error == std::errc::result_out_of_range) {
    // Too many digits for a double: a whole part beyond the range is
    // infinite, a fraction below it is 0; never a silent wrong number.
    const std::size_t point = std::min(ascii.find('.'), ascii.size());
    const bool big = ascii.find_first_of("123456789") < point;
    value = big ? (ascii[0] == '-' ? -HUGE_VAL : HUGE_VAL) : 0.0;
  }
  position = at;
  return value;
}

}  // namespace Processor
