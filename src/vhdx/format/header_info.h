// Vhdx::HeaderInfo: the fields of a container header that survive a
// rewrite. Signature, checksum and sequence number belong to the header's
// reader and writer alone. Module-internal; read it with HeaderReader,
// change a field, write it back with HeaderWriter.
#pragma once

#include <cstdint>

#include "common/guid.h"

namespace Vhdx {

struct HeaderInfo {
  Common::Guid FileWriteGuid{};
  Common::Guid DataWriteGuid{};
  Common::Guid LogGuid{};  // all zero: the log holds nothing to replay
  std::uint16_t LogVersion = 0;
  std::uint16_t Version = 0;
  std::uint32_t LogLength = 0;
  std::uint64_t LogOffset = 0;

  friend bool operator==(const HeaderInfo&, const HeaderInfo&) = default;
};

}  // namespace Vhdx
