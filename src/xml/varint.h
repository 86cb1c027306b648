// VarInt: an unsigned 32-bit number in groups of 7 bits, lowest first, the
// top bit of a byte set when more follow. The number form of the binary
// document. Internal to src/xml.
#pragma once

#include <cstdint>
#include <string>

namespace Xml {

// At most five bytes.
inline void AppendVarInt(std::string& out, std::uint32_t value) {
  while (value >= 0x80) {
    out.push_back(static_cast<char>(0x80 | (value & 0x7F)));
    value >>= 7;
  }
  out.push_back(static_cast<char>(value));
}

}  // namespace Xml
