// The host library carries the English table only: nothing to set up.
#include "common/message_table.h"

namespace Common {

void PrepareMessageTable() {}

}  // namespace Common
