#include "vhdx/format/write_guid.h"

namespace Vhdx {

Common::Guid NewWriteGuid() {
  // Sixteen random bytes with the version nibble forced to 4 and the
  // variant to 10: exactly what CreateRandomGuid makes.
  Common::Guid guid;
  Common::CreateRandomGuid(guid);
  return guid;
}

}  // namespace Vhdx
