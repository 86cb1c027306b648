#include "processor/format/date_format.h"

#include <unicode/datefmt.h>
#include <unicode/smpdtfmt.h>

#include "processor/format/environment_locale.h"

namespace Processor {

namespace {

// The fixed forms, for a locale whose data cannot be read.
constexpr char16_t kFixedDate[] = u"yyyy-MM-dd";
constexpr char16_t kFixedTime[] = u"HH:mm:ss";
constexpr char16_t kFixedDateTime[] = u"yyyy-MM-dd HH:mm:ss";

class DateFormatWin final : public DateFormat {
 public:
  DateFormatWin(Kind kind, int style) {
    if (style < 0 || style > 3) style = 0;
    // ICU counts the other way round: kFull is 0, kShort 3.
    const auto icuStyle = static_cast<icu::DateFormat::EStyle>(3 - style);
    // The user's settings are read once per process, as the number settings
    // are: a message must not change its form halfway through a run.
    static const icu::Locale locale = EnvironmentLocale("LC_TIME");
    switch (kind) {
      case kDate: format_.reset(icu::DateFormat::createDateInstance(icuStyle, locale)); break;
      case kTime: format_.reset(icu::DateFormat::createTimeInstance(icuStyle, locale)); break;
      default:
        format_.reset(icu::DateFormat::createDateTimeInstance(icuStyle, icuStyle, locale));
        break;
    }
    if (format_) return;
    UErrorCode status = U_ZERO_ERROR;
    const char16_t* pattern =
        kind == kDate ? kFixedDate : kind == kTime ? kFixedTime : kFixedDateTime;
    auto fixed = std::make_unique<icu::SimpleDateFormat>(icu::UnicodeString(pattern), status);
    if (U_SUCCESS(status)) format_ = std::move(fixed);
  }

  void Format(String& out, double milliseconds) const override {
    if (!format_) return;
    icu::UnicodeString text;
    format_->format(milliseconds, text);
    out.append(text);
  }

 private:
  std::unique_ptr<icu::DateFormat> format_;
};

}  // namespace

std::unique_ptr<DateFormat> DateFormat::Create(Kind kind, int style) {
  return std::make_unique<DateFormatWin>(kind, style);
}

}  // namespace Processor
