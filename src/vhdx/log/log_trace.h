// The trace lines of log replay: every step of reading and playing a log
// writes one, at the default level, with numbers as decimal text.
// Module-internal; for the log replay classes only.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "common/guid.h"
#include "common/message_ids.h"
#include "common/trace.h"
#include "vellumrig/error_text.h"

namespace Vhdx {

inline void TraceLog(std::uint32_t entry, std::initializer_list<std::u16string_view> args = {}) {
  Common::TraceMessage(2, Common::kProviderTraceModule, 0, entry, args);
}

inline std::u16string LogDecimal(std::uint64_t value) { return Common::FromUtf8(std::to_string(value)); }

inline std::u16string LogGuidText(const Common::Guid& guid) { return Common::FromUtf8(Common::GuidToString(guid)); }

}  // namespace Vhdx
