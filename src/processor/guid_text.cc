#include "processor/guid_text.h"

#include "common/assert.h"
#include "common/guid.h"
#include "processor/format/number_format_hex.h"
#include "processor/variant.h"

namespace Processor {

void GenerateGuid(Processor::String& out) {
  Common::Guid guid;
  Common::CreateRandomGuid(guid);
  String g;
  std::unique_ptr<NumberFormat> hex = NumberFormat::Create(NumberFormat::kHex);
  if (hex) {
    // The first three fields as the structure holds them, then the bytes.
    hex->Format(g, Variant(static_cast<unsigned>(guid.Data1)), 8);
    g.append(u'-');
    hex->Format(g, Variant(static_cast<unsigned>(guid.Data2)), 4);
    g.append(u'-');
    hex->Format(g, Variant(static_cast<unsigned>(guid.Data3)), 4);
    g.append(u'-');
    for (int i = 0; i < 8; ++i) {
      if (i == 2) g.append(u'-');
      hex->Format(g, Variant(static_cast<unsigned>(guid.Data4[i])), 2);
    }
  }
  VR_ASSERT(g.length()==36);
  out = g;
}

}  // namespace Processor
