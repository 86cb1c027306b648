// Iterators that walk a text from break to break: line and word breaks
// from ICU for the default locale, and path breaks (the separators "/" and
// "\", then the end). Module-internal; the message format shortens texts
// with them.
#pragma once

#include <cstdint>
#include <memory>

#include <unicode/brkiter.h>

#include "vellumrig/string.h"

namespace Processor {

// Next and Previous move to the next break and tell whether the iterator
// still stands on one.
class Iterator {
 public:
  virtual ~Iterator() = default;
  virtual bool Previous() = 0;
  virtual bool Next() = 0;
  virtual bool IsValid() const = 0;
};

class BreakIterator : public Iterator {
 public:
  virtual void SetText(const Processor::String& text) = 0;
  virtual std::uint32_t GetPosition() const = 0;
};

enum BreakIteratorKind : int {
  kLineBreaks = 0,
  kWordBreaks = 1,
  kPathBreaks = 2,
};

// Null for an unknown kind, or when ICU cannot make its iterator.
std::unique_ptr<BreakIterator> CreateBreakIterator(int kind);

class ICUBreakIterator final : public BreakIterator {
 public:
  explicit ICUBreakIterator(std::unique_ptr<icu::BreakIterator> iterator) : iterator_(std::move(iterator)) {}

  bool Previous() override { return Step(&icu::BreakIterator::previous); }
  bool Next() override { return Step(&icu::BreakIterator::next); }
  bool IsValid() const override { return iterator_ && position_ != kEnd; }
  void SetText(const Processor::String& text) override;
  std::uint32_t GetPosition() const override { return position_; }

 private:
  // ICU's "no more breaks", stored as it comes.
  static constexpr std::uint32_t kEnd = static_cast<std::uint32_t>(icu::BreakIterator::DONE);

  bool Step(int32_t (icu::BreakIterator::*step)());

  std::unique_ptr<icu::BreakIterator> iterator_;
  std::uint32_t position_ = 0;
};

class PathBreakIterator final : public BreakIterator {
 public:
  // Paths are only walked forwards.
  bool Previous() override;
  bool Next() override;
  bool IsValid() const override;
  void SetText(const Processor::String& text) override;
  std::uint32_t GetPosition() const override { return position_; }

 private:
  Processor::String text_;
  std::uint32_t position_ = 0;
};

}  // namespace Processor
