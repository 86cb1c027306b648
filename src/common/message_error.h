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

// Replaces each "{n}" with the n-th argument; a placeholder without an
// argument stays as it is.
std::u16string FillPlaceholders(std::u16string_view pattern,
                                std::initializer_list<std::u16string_view> args);

// Without arguments the text stays in the table and the record points at it.
Error MessageError(const ErrorSite& site, ErrorMessage message) noexcept;
Error MessageError(const ErrorSite& site, ErrorMessage message,
                   std::initializer_list<std::u16string_view> args) noexcept;

}  // namespace Common
