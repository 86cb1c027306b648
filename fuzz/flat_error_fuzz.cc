// Arbitrary bytes as a flat error stream: the parse must stay inside the
// bytes, and every record it makes must read and print.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "common/flat_error.h"
#include "vellumrig/error_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Common::Error chain = Common::ParseFlatError(data, size);
  for (Common::Error e = chain; !e.IsEmpty(); e = e.Reason()) {
    std::string_view names(e.GetFieldNames() ? e.GetFieldNames() : "");
    while (!names.empty()) {
      const std::size_t comma = names.find(',');
      const std::string name(names.substr(0, comma));
      e.GetNumber(name.c_str());
      e.GetNarrowString(name.c_str());
      e.GetWideString(name.c_str());
      names = comma == std::string_view::npos ? std::string_view() : names.substr(comma + 1);
    }
  }
  if (!chain.IsEmpty()) {
    Common::Error shared = chain;
    shared.AddReason(chain);  // clones the shared head
    (void)Common::FullText(shared);
  }
  return 0;
}
