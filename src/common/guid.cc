#include "common/guid.h"

#include <cstdio>
#include <cstring>

#include "common/assert.h"
#include "common/random.h"

namespace Common {

bool Guid::IsZero() const {
  static constexpr Guid kZero{};
  return *this == kZero;
}

bool operator==(const Guid& a, const Guid& b) { return std::memcmp(&a, &b, sizeof(Guid)) == 0; }

bool CreateRandomGuid(Guid& guid, int kind) {
  if (kind != 0) {
    Assert("false", "core\\common\\guid", 56);
    return false;
  }
  GetRandomBytes(&guid, sizeof guid, false);
  guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3F) | 0x80);
  guid.Data3 = static_cast<std::uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);
  return true;
}

std::string GuidToString(const Guid& g) {
  char text[40];
  std::snprintf(text, sizeof text, "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X",
                static_cast<unsigned long>(g.Data1), g.Data2, g.Data3, g.Data4[0], g.Data4[1],
                g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return text;
}

bool GuidFromString(Guid& guid, const char* text) {
  if (!VR_ASSERT(text != 0)) return false;
  unsigned long d1 = 0;
  unsigned short d2 = 0, d3 = 0;
  unsigned int b[8] = {};
  int consumed = 0;
  const int fields =
      std::sscanf(text, "%08lX-%04hX-%04hX-%02X%02X-%02X%02X%02X%02X%02X%02X%n", &d1, &d2, &d3,
                  &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7], &consumed);
  if (fields != 11 || d1 > 0xFFFFFFFFul) return false;
  guid.Data1 = static_cast<std::uint32_t>(d1);
  guid.Data2 = d2;
  guid.Data3 = d3;
  for (int i = 0; i < 8; ++i) guid.Data4[i] = static_cast<std::uint8_t>(b[i]);
  return true;
}

}  // namespace Common
