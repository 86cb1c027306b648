// Processor::NumberFormatICU: numbers by an ICU decimal pattern (the extra
// part of a "number,integer,<pattern>" argument), with the separators of
// the user's locale. Module-internal.
#pragma once

#include <memory>

#include <unicode/decimfmt.h>

#include "processor/format/number_format.h"

namespace Processor {

class NumberFormatICU : public NumberFormat {
 public:
  // A pattern ICU refuses leaves the format unusable: it writes nothing and
  // parses nothing.
  explicit NumberFormatICU(const String& pattern);

  bool Usable() const { return format_ != nullptr; }

  void Format(String& out, const Variant& value, std::int32_t width) const override;
  using NumberFormat::Parse;
  double Parse(const String& text, std::int32_t start, std::int32_t& position) const override;

 private:
  std::unique_ptr<icu::DecimalFormat> format_;
};

}  // namespace Processor
