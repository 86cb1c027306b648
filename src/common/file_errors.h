// Errors of the file family (facility 0x0004) and their texts.
// Used by the module and the host library.
#pragma once

#include <cstdint>
#include <string_view>

#include "vellumrig/error.h"
#include "vellumrig/file.h"

namespace Common {

// The text that stands for a file-error code when a record has none of its
// own; empty for codes without one (0x40018 among them).
std::u16string_view FileErrorText(std::uint32_t code);

// A file error with the code's own text from the message table.
Error FileErrorOf(const ErrorSite& site, std::uint32_t code) noexcept;

// 0x4000E for an operation a file or folder does not have. Its text is the
// general "The operation is not supported.", not the code's own shorter
// one, because hosts compare it.
Error NotSupportedError(const ErrorSite& site) noexcept;

// Reads exactly `size` bytes; when fewer come, stores 0x40002 "End of file
// has been encountered." in the file's Status. Returns what was read.
std::size_t ReadExact(i_file& file, void* buffer, std::size_t size);

}  // namespace Common
