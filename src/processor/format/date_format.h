// Processor::DateFormat: dates and times in the user's local form (the
// environment's LC_TIME, then LC_ALL or LANG). Module-internal; the variant
// and the message format's "date", "time" and "date_time" arguments use it.
//
// A date is milliseconds since 1970-01-01 UTC, shown in the local time zone.
// Styles: 0 short, 1 medium, 2 long, 3 full.
#pragma once

#include <memory>

#include "vellumrig/string.h"

namespace Processor {

class DateFormat {
 public:
  enum Kind { kDate = 0, kTime = 1, kDateTime = 2 };

  virtual ~DateFormat() = default;
  virtual void Format(String& out, double milliseconds) const = 0;

  // A style outside 0..3 is taken as 0. Never null.
  static std::unique_ptr<DateFormat> Create(Kind kind, int style);
  static std::unique_ptr<DateFormat> CreateDate(int style) { return Create(kDate, style); }
  static std::unique_ptr<DateFormat> CreateTime(int style) { return Create(kTime, style); }
  static std::unique_ptr<DateFormat> CreateDateTime(int style) { return Create(kDateTime, style); }
};

}  // namespace Processor
