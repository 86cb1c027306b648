// Logging::Bind: the trace sink that forwards every line to the logging
// library, libvellumrig_logging.so, found beside the module (or, for a
// program in a bin folder, in the lib folder next to it) and else on the
// loader's path. Without the library tracing goes quiet and nothing else
// fails. Used by the module's entry and by vrig.
#pragma once

#include "common/trace_logic.h"

namespace Logging {

class Bind final : public Common::TraceLogic {
 public:
  Bind() = default;
  // Removes itself from the trace switch if it registered itself.
  ~Bind() override;

  void Register();

  void Trace(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
             const char16_t* text) override;
  void TraceData(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                 const char16_t* text, const void* data, std::size_t size) override;
  void TraceError(std::uint32_t tag, int level, const Common::Error& error) override;

 private:
  bool registered_ = false;
};

// Registers the process's one Bind sink, once; later calls do nothing. The
// module calls it when the host first opens a server, vrig when it is told
// to trace.
void RegisterLoggingSink() noexcept;

}  // namespace Logging
