// Processor::NumberFormatWinOptions: the user's number settings (grouping,
// separators, fraction digits, negative form), read once from the locale of
// the environment through ICU's locale data. Module-internal; used by
// NumberFormatWin and NumberFormatICU.
//
// A singleton that dies at its last release: the settings are those of the
// environment when the first holder asked, and a new instance reads again.
#pragma once

#include <atomic>
#include <string>

#include "processor/protected_object.h"
#include "processor/singleton.h"
#include "vellumrig/string.h"

namespace Processor {

struct NumberSettings {
  // False when the locale data could not be read: numbers then take the
  // plain form "%.9f".
  bool Usable = false;
  // 0 no grouping; 3 thousands; 2 pairs; 32 three, then pairs ("3;2;0").
  int Grouping = 3;
  int Digits = 2;  // at most this many fraction digits
  String DecimalSeparator{u"."};
  String ThousandSeparator{u","};
  String NegativeSign{u"-"};
  // 0 "(1.1)", 1 "-1.1", 2 "- 1.1", 3 "1.1-", 4 "1.1 -".
  int NegativeOrder = 1;
  std::string LocaleId;  // the ICU locale the settings came from
};

class NumberFormatWinOptions final : public Singleton<NumberFormatWinOptions>,
                                     public ProtectedObject {
 public:
  // Read at the first call, under the object's lock; fixed afterwards.
  const NumberSettings& Settings();

 private:
  friend class Singleton<NumberFormatWinOptions>;
  NumberFormatWinOptions() = default;

  NumberSettings settings_;
  std::atomic<bool> read_{false};
};

// The settings of one ICU locale; Usable is false when its data fails.
NumberSettings ReadNumberSettings(const std::string& localeId);

}  // namespace Processor
