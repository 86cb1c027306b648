#include "processor/format/number_format.h"

#include "processor/format/number_format_hex.h"
#include "processor/format/number_format_win.h"

namespace Processor {

std::unique_ptr<NumberFormat> NumberFormat::Create(int kind) {
  switch (kind) {
    case kLocal: return std::make_unique<NumberFormatWin>();
    case kHex: return std::make_unique<NumberFormatHEX>(16);
    case kDecimal: return std::make_unique<NumberFormatHEX>(10);
    default: return nullptr;
  }
}

}  // namespace Processor
