#include "processor/format/number_format_hex.h"

#include <algorithm>

#include "common/assert.h"
#include "processor/variant.h"

namespace Processor {

namespace {

// Room for 32 digits and a terminator: the widest text a width may ask for.
constexpr std::size_t kDigitRoom = 33;
constexpr char16_t kDigits[] = u"0123456789ABCDEF";

}  // namespace

std::size_t NumberFormatHEX::FormatBits(char16_t* buffer, std::size_t capacity,
                                        std::uint64_t bits, std::int32_t width) const {
  char16_t digits[kDigitRoom];
  std::size_t at = kDigitRoom - 1;
  const auto base = static_cast<std::uint64_t>(base_);
  // Digits from the right; a zero value still writes one "0".
  do {
    digits[--at] = kDigits[bits % base];
    bits /= base;
  } while (bits != 0 && at > 0);
  // A width beyond the room is cut to it: a hostile width must not make
  // an unbounded text.
  const std::size_t wanted =
      std::min<std::size_t>(width > 0 ? static_cast<std::size_t>(width) : 0, kDigitRoom - 1);
  while (kDigitRoom - 1 - at < wanted) digits[--at] = u'0';
  const std::size_t count = kDigitRoom - 1 - at;
  if (count > capacity) return 0;
  std::copy(digits + at, digits + kDigitRoom - 1, buffer);
  return count;
}

std::size_t NumberFormatHEX::FormatToBuffer(char16_t* buffer, std::size_t capacity,
                                            const Variant& value, std::int32_t width) const {
  std::uint64_t bits = 0;
  switch (value.GetType()) {
    case Variant::TLong: bits = static_cast<std::uint32_t>(value.GetLong()); break;
    case Variant::TULong: bits = value.GetULong(); break;
    case Variant::TLong64: bits = static_cast<std::uint64_t>(value.GetLong64()); break;
    case Variant::TULong64: bits = value.GetULong64(); break;
    default:
      VR_ASSERT(false);
      return 0;
  }
  return FormatBits(buffer, capacity, bits, width);
}

void NumberFormatHEX::Format(String& out, const Variant& value, std::int32_t width) const {
  char16_t buffer[kDigitRoom];
  const std::size_t n = FormatToBuffer(buffer, kDigitRoom, value, width);
  out.append(buffer, 0, static_cast<std::int32_t>(n));
}

double NumberFormatHEX::Parse(const String& text, std::int32_t start,
                              std::int32_t& position) const {
  std::uint64_t base = static_cast<std::uint64_t>(base_);
  std::uint64_t value = 0;
  bool negative = false;
  bool signSeen = false;
  bool baseSwitched = false;
  int digitsRead = 0;
  std::int32_t at = std::max(start, 0);
  for (; at < text.length(); ++at) {
    const char16_t c = text.charAt(at);
    if ((c == u'+' || c == u'-') && digitsRead == 0 && !signSeen) {
      signSeen = true;
      negative = c == u'-';
      continue;
    }
    if ((c == u'x' || c == u'X') && digitsRead == 1 && value == 0 && !baseSwitched) {
      baseSwitched = true;
      base = 16;
      continue;
    }
    std::uint64_t digit;
    if (c >= u'0' && c <= u'9') digit = c - u'0';
    else if (c >= u'a' && c <= u'z') digit = c - u'a' + 10;
    else if (c >= u'A' && c <= u'Z') digit = c - u'A' + 10;
    else break;
    if (digit >= base) break;
    // Collected in 64 bits: a longer number wraps, as the caller asked for
    // a 64-bit value.
    value = value * base + digit;
    ++digitsRead;
  }
  position = at;
  // The unsigned value as it stands: the top bit counts 2^63, not a sign.
  const double result = static_cast<double>(value);
  return negative ? -result : result;
}

}  // namespace Processor
