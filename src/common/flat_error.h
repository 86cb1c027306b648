// The flat error stream: a chain of error records serialised as bytes, as
// the resource archive reader reports its failures. Used by the module.
//
//   version 1 (1 byte), then records while 12 bytes remain:
//   code (4, 0 ends), site hash (8), text (NUL-terminated, UTF-8),
//   fields: name (NUL-terminated), type 'A' narrow / 'W' wide (both
//   NUL-terminated UTF-8) / 'N' number (8), ended by an empty name.
// "$file", "$func" and "$line" fill the record's site instead of fields.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vellumrig/error.h"

namespace Common {

// The first record heads the chain; each further one is the Reason of the
// one before. Bounds are checked at every step: what is malformed ends the
// parse, and the records completed before it stand. A wrong version or a
// too-short stream gives the empty error.
Error ParseFlatError(const std::uint8_t* bytes, std::size_t length);

// One record of a stream, for writers of streams (and tests).
struct FlatRecord {
  struct Field {
    std::string Name;
    char Type;  // 'A', 'W' or 'N'
    std::string Text;
    std::uint64_t Number = 0;
  };
  std::uint32_t Code = 0;
  std::uint64_t SiteHash = 0;
  std::string Text;
  std::vector<Field> Fields;
};
std::vector<std::uint8_t> WriteFlatError(const std::vector<FlatRecord>& records);

// A copy of `text` kept to process end, the same pointer for equal texts;
// null when it cannot be stored.
const char* InternSiteString(const char* text);

}  // namespace Common
