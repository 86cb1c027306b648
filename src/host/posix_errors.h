// errno values told as file errors (facility 0x0004). Host library only.
#pragma once

#include <cstdint>
#include <string_view>

#include "vellumrig/error.h"

namespace Host::detail {

// The file-error code nearest to `error` for an operation whose own code is
// `operation` (FileError::Read for a read, FileError::Open for an open, ...).
// Errors without a nearer meaning take the operation's code.
std::uint32_t FileErrorOfErrno(int error, std::uint32_t operation) noexcept;

// The file error for `error` with its text from the message table and the
// errno as its cause. `path` (UTF-8), when given, is shown as the file name.
Common::Error ErrnoError(const Common::ErrorSite& site, std::uint32_t operation, int error,
                         std::string_view path = {});

// A file error without an errno behind it.
Common::Error CodeError(const Common::ErrorSite& site, std::uint32_t code,
                        std::string_view path = {});

}  // namespace Host::detail
