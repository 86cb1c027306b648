// Processor::MessageFormat: a pattern and its Variant arguments made into
// text. Every catalogue text with a placeholder goes through it.
// Module-internal; one instance serves one thread at a time, so callers
// make one for each message.
//
// A pattern is literal text with arguments in braces: "{0}", or
// "{0,keyword}", "{0,keyword,style}", "{0,keyword,style,extra}". An argument
// may hold nested arguments in any part but its index; they are replaced
// first, so a choice can hold arguments in its forms. U+F800 quotes: while
// quoting, "{", "}" and "," are plain text. A bad pattern never throws: a
// missing argument shows its number, an unknown keyword shows nothing.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "processor/format/subformat.h"
#include "processor/variant.h"

namespace Processor {

inline constexpr char16_t kQuote = 0xF800;

class MessageFormat {
 public:
  virtual void Format(String& out, const String& pattern, const Variant* args, int argCount) = 0;
  virtual ~MessageFormat() = default;
  // The result as UTF-16 in a caller's buffer, cut to `capacity` units;
  // returns its full length.
  virtual std::int32_t Format(char16_t* buffer, std::int32_t capacity, const char16_t* pattern,
                              std::int32_t length, const Variant* args, int argCount) = 0;

  static std::unique_ptr<MessageFormat> Create();
};

class MessageFormatImpl final : public MessageFormat {
 public:
  void Format(String& out, const String& pattern, const Variant* args, int argCount) override;
  std::int32_t Format(char16_t* buffer, std::int32_t capacity, const char16_t* pattern, std::int32_t length,
                      const Variant* args, int argCount) override;

 private:
  // Reads from `position`; a nested run reads one argument and returns the
  // position behind it.
  std::int32_t Run(String& result, const String& pattern, std::int32_t position, const Variant* args,
                   int argCount, int depth);
  void Evaluate(String& result, String (&segments)[kSegmentCount], const Variant* args, int argCount);
  SubformatBase* Find(const String& keyword);

  std::map<String, std::unique_ptr<SubformatBase>> subformats_;
  std::unique_ptr<SubformatBase> simple_;
};

}  // namespace Processor
