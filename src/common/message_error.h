// Errors whose text is an entry of the message table, with placeholders
// "{0}", "{1}", ... filled in. Module-internal.
//
// Each subsystem names its errors as ErrorMessage constants (code and entry
// together) so that a raise site reads as one line.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "common/message_table.h"
#include "vellumrig/error.h"

namespace Common {

struct ErrorMessage {
  std::uint32_t Code;
  std::uint32_t Entry;
};

// Fills a pattern's placeholders with the arguments, as texts. The module
// installs its message format; without it (the host library) each "{n}" is
// replaced by the n-th argument, and a placeholder without one stays.
std::u16string FillPlaceholders(std::u16string_view pattern,
                                std::initializer_list<std::u16string_view> args);

// Each "{n}" replaced by the n-th argument, nothing else.
std::u16string SubstitutePlaceholders(std::u16string_view pattern, const std::u16string_view* args,
                                      std::size_t count);

using MessageFormatter = std::u16string (*)(std::u16string_view pattern, const std::u16string_view* args,
                                            std::size_t count);
void SetMessageFormatter(MessageFormatter formatter) noexcept;

// Without arguments the text stays in the table and the record points at it.
Error MessageError(const ErrorSite& site, ErrorMessage message) noexcept;
Error MessageError(const ErrorSite& site, ErrorMessage message,
                   std::initializer_list<std::u16string_view> args) noexcept;

}  // namespace Common
