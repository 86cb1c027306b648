// GenerateGuid: a new random identifier as text, five groups of 8, 4, 4, 4
// and 12 upper-case hexadecimal digits. Module-internal; used for the
// identifiers of machines that exist only in memory.
#pragma once

#include "vellumrig/string.h"

namespace Processor {

void GenerateGuid(Processor::String& out);

}  // namespace Processor
