// The ICU locale of the user's environment for one category (numbers or
// dates). Module-internal; read by the options of the local formats.
#pragma once

#include <string>

#include <unicode/locid.h>

namespace Processor {

// The first non-empty of `category` ("LC_NUMERIC", "LC_TIME"), LC_ALL and
// LANG, turned into an ICU locale id: "de_DE.UTF-8@euro" gives "de_DE".
// "C", "POSIX" and an unset environment give "en_US_POSIX", whose numbers
// have no grouping ("1234567.5"), the form a C program prints.
std::string EnvironmentLocaleId(const char* category);
icu::Locale EnvironmentLocale(const char* category);

}  // namespace Processor
