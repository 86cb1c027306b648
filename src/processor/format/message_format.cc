#include "processor/format/message_format.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "common/message_error.h"
#include "processor/format/error_format.h"

#include "common/assert.h"

namespace Processor {
namespace {

// Nested arguments deeper than this are read as plain text: each level is
// a call, and a hostile pattern of many "{" must not exhaust the stack.
constexpr int kMaxDepth = 32;

// The index as atoi reads it: leading spaces, a sign, then digits.
long long ArgumentIndex(const String& text) {
  std::int32_t i = 0;
  const std::int32_t n = text.length();
  while (i < n && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))) ++i;
  bool negative = false;
  if (i < n && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  long long value = 0;
  for (; i < n && text[i] >= u'0' && text[i] <= u'9'; ++i)
    value = std::min<long long>(value * 10 + (text[i] - u'0'), 1ll << 40);
  return negative ? -value : value;
}

}  // namespace

std::unique_ptr<MessageFormat> MessageFormat::Create() { return std::make_unique<MessageFormatImpl>(); }

void MessageFormatImpl::Format(String& out, const String& pattern, const Variant* args, int argCount) {
  out.remove();
  Run(out, pattern, 0, args, argCount, 0);
}

std::int32_t MessageFormatImpl::Format(char16_t* buffer, std::int32_t capacity, const char16_t* pattern,
                                       std::int32_t length, const Variant* args, int argCount) {
  String out;
  Format(out, String(pattern, length), args, argCount);
  if (buffer && capacity > 0) {
    const std::int32_t n = std::min(capacity, out.length());
    std::memcpy(buffer, out.getBuffer(), static_cast<std::size_t>(n) * sizeof(char16_t));
  }
  return out.length();
}

std::int32_t MessageFormatImpl::Run(String& result, const String& pattern, std::int32_t position,
                                    const Variant* args, int argCount, int depth) {
  String segments[kSegmentCount];
  const bool topLevel = position == 0;
  bool quoting = false, open = false;
  int part = SEGMENT_LITERAL;
  const std::int32_t length = pattern.length();
  while (position < length) {
    const char16_t c = pattern[position];
    if (c == kQuote) {
      quoting = !quoting;
      // Inside an argument the quote stays, for the subformat to see.
      if (part != SEGMENT_LITERAL) segments[part] += c;
      ++position;
      continue;
    }
    if (!quoting) {
      if (c == u',' && open) {
        if (part < SEGMENT_EXTRA) ++part;  // a comma past the last part is dropped
        ++position;
        continue;
      }
      if (c == u'{' && open && depth < kMaxDepth) {
        String inner;
        position = Run(inner, pattern, position, args, argCount, depth + 1);
        segments[part] += inner;
        continue;
      }
      if (c == u'{' && !open) {
        VR_ASSERT(part == 0);
        part = SEGMENT_ARGUMENT;
        open = true;
        ++position;
        continue;
      }
      if (c == u'}' && open) {
        Evaluate(result, segments, args, argCount);
        ++position;
        if (!topLevel) return position;
        for (String& s : segments) s.remove();
        part = SEGMENT_LITERAL;
        open = false;
        continue;
      }
    }
    segments[part] += c;
    ++position;
  }
  result += segments[part];
  return position;
}

void MessageFormatImpl::Evaluate(String& result, String (&segments)[kSegmentCount], const Variant* args,
                                 int argCount) {
  result += segments[SEGMENT_LITERAL];
  VR_ASSERT(!segments[SEGMENT_ARGUMENT].isEmpty());
  const long long index = ArgumentIndex(segments[SEGMENT_ARGUMENT]);
  // A negative index is as missing as one past the end: never read before
  // the arguments.
  if (index < 0 || index >= argCount || !args) {
    result += u'{';
    result += segments[SEGMENT_ARGUMENT];
    result += u'}';
    return;
  }
  const Variant& value = args[index];
  if (segments[SEGMENT_TYPE].isEmpty() && segments[SEGMENT_STYLE].isEmpty() && segments[SEGMENT_EXTRA].isEmpty()) {
    if (!simple_) simple_ = CreateSubformatSimple();
    simple_->Format(value, result, segments);
    return;
  }
  String keyword = segments[SEGMENT_TYPE];
  keyword.trim();
  SubformatBase* subformat = Find(keyword);
  if (!subformat) {
    Common::Assert("false", "processor\\format\\form_msi", 186);
    return;
  }
  subformat->Format(value, result, segments);
}

SubformatBase* MessageFormatImpl::Find(const String& keyword) {
  auto found = subformats_.find(keyword);
  if (found != subformats_.end()) return found->second.get();
  std::unique_ptr<SubformatBase> made = CreateSubformat(keyword);
  if (!made) return nullptr;
  return subformats_.emplace(keyword, std::move(made)).first->second.get();
}

}  // namespace Processor

namespace Processor {
namespace {

// Catalogue texts are filled through the message format. Arguments arrive
// as texts; a subformat that cannot take one must not cost the message, so
// a failure falls back to plain substitution.
std::u16string FormatCatalogueText(std::u16string_view pattern, const std::u16string_view* args,
                                   std::size_t count) {
  try {
    std::vector<Variant> values;
    values.reserve(count);
    for (std::size_t i = 0; i < count; ++i)
      values.emplace_back(String(args[i].data(), static_cast<std::int32_t>(args[i].size())));
    MessageFormatImpl format;
    String out;
    format.Format(out, String(pattern.data(), static_cast<std::int32_t>(pattern.size())), values.data(),
                  static_cast<int>(count));
    return out.ToU16();
  } catch (const Common::Error&) {
  } catch (const std::bad_alloc&) {
  }
  return Common::SubstitutePlaceholders(pattern, args, count);
}

[[maybe_unused]] const bool kInstalled = [] {
  Common::SetMessageFormatter(&FormatCatalogueText);
  InstallLocalErrorNumbers();
  return true;
}();

}  // namespace
}  // namespace Processor
