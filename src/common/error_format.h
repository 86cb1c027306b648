// The text of an error chain as users and logs see it: each error's
// message, its code, its fields and its site, outer meaning first, then
// each cause. Used by the module and the host library; Common::FullText is
// this format.
#pragma once

#include <cstdint>
#include <string>

#include "vellumrig/error.h"

namespace Common {

// The record's text; without one, the system's text of a 0xFFF0 error or
// the file-error text of a 0x0004 code; otherwise empty.
std::u16string ErrorMessageText(const Error& error);
// A field's value: a string (in double quotes when asked, nothing at all
// when empty), or else the number in decimal and in hexadecimal.
std::u16string ErrorFieldValue(const Error& error, const char* name, bool quoted);
// The block of one error without its causes.
std::u16string ErrorBlock(const Error& error);

// Decimal numbers in errors are plain digits unless the module installs
// the user's local number form.
using DecimalFormatter = std::u16string (*)(std::uint64_t value);
void SetDecimalFormatter(DecimalFormatter formatter) noexcept;

}  // namespace Common
