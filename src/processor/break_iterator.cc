#include "processor/break_iterator.h"

#include <unicode/locid.h>

#include "common/assert.h"

namespace Processor {

std::unique_ptr<BreakIterator> CreateBreakIterator(int kind) {
  if (kind == kPathBreaks) return std::make_unique<PathBreakIterator>();
  if (kind != kLineBreaks && kind != kWordBreaks) return nullptr;
  UErrorCode status = U_ZERO_ERROR;
  const icu::Locale& locale = icu::Locale::getDefault();
  std::unique_ptr<icu::BreakIterator> icu(kind == kLineBreaks
                                              ? icu::BreakIterator::createLineInstance(locale, status)
                                              : icu::BreakIterator::createWordInstance(locale, status));
  if (U_FAILURE(status) || !icu) return nullptr;
  return std::make_unique<ICUBreakIterator>(std::move(icu));
}

bool ICUBreakIterator::Step(int32_t (icu::BreakIterator::*step)()) {
  if (!IsValid()) return false;
  position_ = static_cast<std::uint32_t>((iterator_.get()->*step)());
  return IsValid();
}

void ICUBreakIterator::SetText(const Processor::String& text) {
  if (!iterator_) return;
  iterator_->setText(text);
  position_ = 0;
}

bool PathBreakIterator::Previous() {
  Common::Assert("false", "processor\\break_iterator", 149);
  return false;
}

bool PathBreakIterator::Next() {
  const auto length = static_cast<std::uint32_t>(text_.length());
  ++position_;
  while (position_ < length && text_.charAt(static_cast<int32_t>(position_)) != u'/' &&
         text_.charAt(static_cast<int32_t>(position_)) != u'\\')
    ++position_;
  return IsValid();
}

bool PathBreakIterator::IsValid() const {
  return !text_.isEmpty() && position_ <= static_cast<std::uint32_t>(text_.length());
}

void PathBreakIterator::SetText(const Processor::String& text) {
  text_ = text;
  position_ = 0;
}

}  // namespace Processor
