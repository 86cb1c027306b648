#include "processor/guid_text.h"

#include "common/guid.h"

namespace Processor {

void GenerateGuid(Processor::String& out) {
  Common::Guid guid;
  Common::CreateRandomGuid(guid);
  out = Processor::String(icu::UnicodeString::fromUTF8(Common::GuidToString(guid)));
}

}  // namespace Processor
