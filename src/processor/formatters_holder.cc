#include "processor/formatters_holder.h"

namespace Processor {

FormattersHolder::FormattersHolder()
    : local_(std::make_unique<NumberFormatWin>()), size_(SizeFormat::Create()) {}

}  // namespace Processor
