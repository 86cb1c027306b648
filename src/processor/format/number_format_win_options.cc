#include "processor/format/number_format_win_options.h"

#include <memory>

#include <unicode/dcfmtsym.h>
#include <unicode/decimfmt.h>
#include <unicode/numfmt.h>

#include "processor/format/environment_locale.h"

namespace Processor {

namespace {

bool IsSpace(char16_t c) { return c == u' ' || c == 0x00A0 || c == 0x202F; }

// The negative form from where the locale's pattern puts its sign.
int NegativeOrderOf(const icu::UnicodeString& prefix, const icu::UnicodeString& suffix) {
  if (prefix.startsWith(u"(") && suffix.endsWith(u")")) return 0;
  if (!suffix.isEmpty()) return IsSpace(suffix.charAt(0)) ? 4 : 3;
  if (!prefix.isEmpty() && IsSpace(prefix.charAt(prefix.length() - 1))) return 2;
  return 1;
}

}  // namespace

NumberSettings ReadNumberSettings(const std::string& localeId) {
  NumberSettings s;
  s.LocaleId = localeId;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale locale = icu::Locale::createFromName(localeId.c_str());
  std::unique_ptr<icu::NumberFormat> format(icu::NumberFormat::createInstance(locale, status));
  auto* decimal = dynamic_cast<icu::DecimalFormat*>(format.get());
  icu::DecimalFormatSymbols symbols(locale, status);
  if (U_FAILURE(status) || !decimal) return s;

  const int primary = decimal->getGroupingSize();
  const int secondary = decimal->getSecondaryGroupingSize();
  // ICU gives sizes where the system gives a text such as "3;2;0"; the same
  // three forms are kept. A locale without grouping (C) keeps none.
  if (!decimal->isGroupingUsed() || primary <= 0) s.Grouping = 0;
  else if (primary == 3 && secondary == 2) s.Grouping = 32;
  else if (primary == 2) s.Grouping = 2;
  else s.Grouping = 3;
  s.Digits = decimal->getMaximumFractionDigits();
  s.DecimalSeparator = symbols.getSymbol(icu::DecimalFormatSymbols::kDecimalSeparatorSymbol);
  s.ThousandSeparator = symbols.getSymbol(icu::DecimalFormatSymbols::kGroupingSeparatorSymbol);
  s.NegativeSign = symbols.getSymbol(icu::DecimalFormatSymbols::kMinusSignSymbol);
  icu::UnicodeString prefix, suffix;
  decimal->getNegativePrefix(prefix);
  decimal->getNegativeSuffix(suffix);
  s.NegativeOrder = NegativeOrderOf(prefix, suffix);
  s.Usable = !s.DecimalSeparator.isEmpty() && !s.NegativeSign.isEmpty() && s.Digits >= 0;
  return s;
}

const NumberSettings& NumberFormatWinOptions::Settings() {
  if (!read_.load(std::memory_order_acquire)) {
    Common::MutexGuard guard(GetMutex());
    if (!read_.load(std::memory_order_relaxed)) {
      settings_ = ReadNumberSettings(EnvironmentLocaleId("LC_NUMERIC"));
      read_.store(true, std::memory_order_release);
    }
  }
  return settings_;
}

}  // namespace Processor
