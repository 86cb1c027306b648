#include "processor/format/environment_locale.h"

#include <cstdlib>

namespace Processor {

std::string EnvironmentLocaleId(const char* category) {
  // The category first, then the general settings: a user who set only
  // LC_NUMERIC gets the numbers he asked for.
  const char* names[] = {category, "LC_ALL", "LANG"};
  std::string value;
  for (const char* name : names) {
    const char* v = std::getenv(name);
    if (v && *v) {
      value = v;
      break;
    }
  }
  const std::size_t cut = value.find_first_of(".@");
  if (cut != std::string::npos) value.resize(cut);
  if (value.empty() || value == "C" || value == "POSIX") return "en_US_POSIX";
  return value;
}

icu::Locale EnvironmentLocale(const char* category) {
  return icu::Locale::createFromName(EnvironmentLocaleId(category).c_str());
}

}  // namespace Processor
