// The resource archive built into the module's read-only data at link time,
// so that it is found whatever path the module was loaded by and survives
// stripping. Module-internal; the resources read it through ResourceApi.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Common::Resources {

struct ArchiveBytes {
  const std::uint8_t* Data;
  std::size_t Size;
};

// The archive's bytes; they live as long as the module is loaded.
ArchiveBytes EmbeddedArchive();

}  // namespace Common::Resources
