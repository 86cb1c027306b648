// Numbers from property texts. Module-internal.
//
// Base 10; spaces around are skipped. A last "H" or "h", or an "x"/"X"
// after a leading zero, selects base 16. A character that is no digit of
// the base, an empty text, or an overflow of 64 bits fails with a code-only
// error of code 1.
#pragma once

#include <cstdint>
#include <string>

namespace VirtualWareRaw {

std::uint64_t FromStringU64(const std::u16string& text);
std::uint32_t FromStringU32(const std::u16string& text);

}  // namespace VirtualWareRaw
