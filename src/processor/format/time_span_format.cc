#include "processor/format/time_span_format.h"

#include "processor/format/number_format_hex.h"

namespace Processor {

namespace {

class TimeSpanFormatImpl final : public TimeSpanFormat {
 public:
  void Format(String& out, std::uint64_t milliseconds, bool showFraction) const override {
    const std::uint64_t hours = milliseconds / 3600000;
    const std::uint64_t minutes = milliseconds % 3600000 / 60000;
    const std::uint64_t seconds = milliseconds % 60000 / 1000;
    Append(out, hours, 2);
    out.append(u':');
    Append(out, minutes, 2);
    out.append(u':');
    Append(out, seconds, 2);
    if (showFraction) {
      out.append(u'.');
      Append(out, milliseconds % 1000, 3);
    }
  }

 private:
  void Append(String& out, std::uint64_t value, int width) const {
    char16_t digits[32];
    const std::size_t n = decimal_.FormatBits(digits, 32, value, width);
    out.append(digits, 0, static_cast<std::int32_t>(n));
  }

  NumberFormatHEX decimal_{10};
};

}  // namespace

std::unique_ptr<TimeSpanFormat> TimeSpanFormat::Create() {
  return std::make_unique<TimeSpanFormatImpl>();
}

}  // namespace Processor
