// The subformats of the message format, one per keyword: "number",
// "date", "time", "date_time", "choice", "concord", "error", "size",
// "ellipsis", "path_ellipsis", "time_span", and the plain form of an
// argument without one. Module-internal; MessageFormatImpl makes and keeps
// them, with whatever formatters they cache.
#pragma once

#include <memory>

#include "processor/variant.h"

namespace Processor {

// The parts of one argument as the pattern is read.
enum Segment : int {
  SEGMENT_LITERAL = 0,   // the text before the argument
  SEGMENT_ARGUMENT = 1,  // its index
  SEGMENT_TYPE = 2,      // the keyword
  SEGMENT_STYLE = 3,     // the first option
  SEGMENT_EXTRA = 4,     // a second option
  kSegmentCount = 5,
};

class SubformatBase {
 public:
  virtual void Format(const Variant& value, String& out, const String* segments) = 0;
  virtual ~SubformatBase() = default;
};

// The plain form of an argument, by its type.
std::unique_ptr<SubformatBase> CreateSubformatSimple();
// Null for a keyword no subformat has.
std::unique_ptr<SubformatBase> CreateSubformat(const String& keyword);

// The form of a value under a language's grammatical-number rule: the
// simple rule has one and many (0, 1), the other one, a few and many
// (0, 1, 2), as Slavic languages count.
int ConcordIndex(double value, bool simpleRule);

// The interfaces through which an object names itself: a property holder
// gives its "Name" property, and the property its value.
class Property : public virtual Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x1B0849E6;
  virtual void GetValue(Variant& out) = 0;
};

class PropertyHolder : public virtual Interface {
 public:
  static constexpr std::uint32_t InterfaceId = 0x1CF3BDE6;
  virtual AutoRef<Property> GetProperty(const String& name) = 0;
};

}  // namespace Processor
