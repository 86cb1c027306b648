#include "common/message_error.h"

#include <atomic>

namespace Common {
namespace {

std::atomic<MessageFormatter> formatter{nullptr};

}  // namespace

void SetMessageFormatter(MessageFormatter f) noexcept { formatter.store(f, std::memory_order_release); }

std::u16string FillPlaceholders(std::u16string_view pattern,
                                std::initializer_list<std::u16string_view> args) {
  if (MessageFormatter f = formatter.load(std::memory_order_acquire)) return f(pattern, args.begin(), args.size());
  return SubstitutePlaceholders(pattern, args.begin(), args.size());
}

std::u16string SubstitutePlaceholders(std::u16string_view pattern, const std::u16string_view* args,
                                      std::size_t count) {
  std::u16string out;
  out.reserve(pattern.size());
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] == u'{') {
      std::size_t j = i + 1;
      std::size_t n = 0;
      while (j < pattern.size() && pattern[j] >= u'0' && pattern[j] <= u'9' && j - i <= 4)
        n = n * 10 + static_cast<std::size_t>(pattern[j++] - u'0');
      if (j > i + 1 && j < pattern.size() && pattern[j] == u'}' && n < count) {
        out += args[n];
        i = j;
        continue;
      }
    }
    out += pattern[i];
  }
  return out;
}

Error MessageError(const ErrorSite& site, ErrorMessage message) noexcept {
  return Error(site, message.Code, GetMessage(message.Entry));
}

Error MessageError(const ErrorSite& site, ErrorMessage message,
                   std::initializer_list<std::u16string_view> args) noexcept {
  try {
    return Error(site, message.Code, FillPlaceholders(MessageText(message.Entry), args));
  } catch (const std::bad_alloc&) {
    // The pattern itself still tells what went wrong.
    return MessageError(site, message);
  }
}

}  // namespace Common
