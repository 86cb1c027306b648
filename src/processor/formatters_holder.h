// FormattersHolder: the formatters that the variant's conversions share,
// made once and kept until shutdown. Module-internal.
#pragma once

#include <memory>

#include "processor/format/number_format_hex.h"
#include "processor/format/number_format_win.h"
#include "processor/format/size_format.h"
#include "processor/singleton.h"

namespace Processor {

class FormattersHolder final : public SingletonShutdown<FormattersHolder> {
 public:
  const NumberFormatHEX& Hex() const { return hex_; }
  const NumberFormatHEX& Decimal() const { return decimal_; }
  const NumberFormatWin& Local() const { return *local_; }
  // Null when the size units could not be set up.
  const SizeFormat* Size() const { return size_.get(); }

 private:
  friend class Singleton<FormattersHolder>;
  FormattersHolder();

  NumberFormatHEX hex_{16};
  NumberFormatHEX decimal_{10};
  std::unique_ptr<NumberFormatWin> local_;
  std::unique_ptr<SizeFormat> size_;
};

}  // namespace Processor
