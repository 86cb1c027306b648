// Processor::StringEnum: names of enum values, from entries written the way
// a source-level enum is written ("A", "B = 7", "C" give 0, 7, 8), so that a
// type's name and values stay in one place. Module-internal; the variant's
// type names and the machines' enumerations use it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace Processor {

class StringEnum {
 public:
  struct Entry {
    // The name is the text up to the first space, tab or "="; a number
    // after it (first digit 0 to 8) is the value and restarts the running
    // value; otherwise the entry takes the running value. Either way the
    // running value goes on from here.
    Entry(const char* declaration, std::int32_t& running);

    std::string Text;
    std::int32_t Value;
  };

  // `entries` must outlive the enum.
  StringEnum(const Entry* entries, std::size_t count, const char* name)
      : entries_(entries), count_(count), name_(name) {}

  const char* Name() const { return name_; }
  // The first entry with `value`; throws Common::Error 0x10073 (with the
  // fields ErrorValue and EnumTypeName) when none has it.
  void ToString(std::string& out, std::int32_t value) const;
  // The same without throwing: null when no entry has `value`.
  const std::string* Find(std::int32_t value) const;

 private:
  const Entry* entries_;
  std::size_t count_;
  const char* name_;
};

}  // namespace Processor
