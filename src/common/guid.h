// GUIDs: the 128-bit value as stored on disk (little-endian fields), random
// version-4 values, and their text form "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX".
// Used by the module.
#pragma once

#include <cstdint>
#include <string>

namespace Common {

struct Guid {
  std::uint32_t Data1;
  std::uint16_t Data2;
  std::uint16_t Data3;
  std::uint8_t Data4[8];

  bool IsZero() const;
  friend bool operator==(const Guid& a, const Guid& b);
};
static_assert(sizeof(Guid) == 16);

// Kind must be 0. A version-4 value: variant bits 10, version nibble 4.
bool CreateRandomGuid(Guid& guid, int kind = 0);
// Upper-case hexadecimal, no braces.
std::string GuidToString(const Guid& guid);
// All eleven fields must be read; braces are not accepted.
bool GuidFromString(Guid& guid, const char* text);

}  // namespace Common
