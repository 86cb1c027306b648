#include "vhdx/file/write_protected_file.h"

#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

void WriteProtectedFile::Write(std::uint64_t, std::size_t, const void*) {
  throw Common::MessageError(VR_SITE, kReadOnly);
}

void WriteProtectedFile::WriteZero(std::uint64_t, std::uint64_t) {
  throw Common::MessageError(VR_SITE, kReadOnly);
}

void WriteProtectedFile::Expand(std::uint64_t) { throw Common::MessageError(VR_SITE, kReadOnly); }

void WriteProtectedFile::Flush() { throw Common::MessageError(VR_SITE, kReadOnly); }

}  // namespace Vhdx
