// Processor::TimeSpanFormat: a duration in milliseconds as "HH:MM:SS",
// optionally with ".mmm". Module-internal; the message format's
// "time_span" arguments use it.
#pragma once

#include <cstdint>
#include <memory>

#include "vellumrig/string.h"

namespace Processor {

class TimeSpanFormat {
 public:
  virtual ~TimeSpanFormat() = default;
  // Hours are not cut at 24 nor at two digits: 100 hours are "100:00:00".
  virtual void Format(String& out, std::uint64_t milliseconds, bool showFraction) const = 0;

  static std::unique_ptr<TimeSpanFormat> Create();
};

}  // namespace Processor
