#include "common/logging_bind.h"

#include <dlfcn.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <type_traits>

#include "common/delay_load.h"
#include "common/trace.h"
#include "logging_api.h"
#include "vellumrig/error_text.h"

namespace Logging {
namespace {

std::string ThisModuleFolder() {
  Dl_info info{};
  if (!dladdr(reinterpret_cast<const void*>(&RegisterLoggingSink), &info) || !info.dli_fname) return {};
  const std::string path = info.dli_fname;
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

Logging_GetTracerFn Load() {
  const std::string folder = ThisModuleFolder();
  std::string candidates[3];
  int count = 0;
  if (!folder.empty()) {
    candidates[count++] = folder + LOGGING_LIBRARY_NAME;
    candidates[count++] = folder + "../lib/" LOGGING_LIBRARY_NAME;
  }
  candidates[count++] = LOGGING_LIBRARY_NAME;
  for (int i = 0; i < count; ++i) {
    // Never unloaded: lines may still come while the process or module ends.
    static Common::DelayLoadedLibrary* library = nullptr;
    library = new Common::DelayLoadedLibrary(candidates[i]);
    try {
      return library->Function<std::remove_pointer_t<Logging_GetTracerFn>>("Logging_GetTracer");
    } catch (const Common::Error&) {
      delete library;
      library = nullptr;
    }
  }
  return nullptr;
}

// Looked up once; the tracer itself is asked for at every call.
const LoggingTracer* Tracer() {
  static const Logging_GetTracerFn getTracer = Load();
  return getTracer ? getTracer() : nullptr;
}

// A library built against an older, shorter table must not have operations
// read from beyond its end.
template <class Field>
bool Has(const LoggingTracer* tracer, Field LoggingTracer::*field, std::size_t offset) {
  return tracer && tracer->Size >= offset + sizeof(void*) && tracer->*field;
}

}  // namespace

Bind::~Bind() {
  if (registered_) Common::UnregisterTraceLogic(this);
}

void Bind::Register() {
  if (registered_) return;
  Common::RegisterTraceLogic(this);
  registered_ = true;
}

void Bind::Trace(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code, const char16_t* text) {
  const LoggingTracer* tracer = Tracer();
  if (Has(tracer, &LoggingTracer::Trace, offsetof(LoggingTracer, Trace)))
    tracer->Trace(tracer, tag, level, module, code, text ? text : u"");
}

void Bind::TraceData(std::uint32_t tag, int level, std::uint32_t module, std::uint32_t code,
                     const char16_t* text, const void* data, std::size_t size) {
  const LoggingTracer* tracer = Tracer();
  if (Has(tracer, &LoggingTracer::TraceData, offsetof(LoggingTracer, TraceData)))
    tracer->TraceData(tracer, tag, level, module, code, text ? text : u"", data, data ? size : 0);
}

void Bind::TraceError(std::uint32_t tag, int level, const Common::Error& error) {
  const LoggingTracer* tracer = Tracer();
  if (Has(tracer, &LoggingTracer::TraceError, offsetof(LoggingTracer, TraceError)))
    tracer->TraceError(tracer, tag, level, error.Code(), Common::FullText(error).c_str());
}

void RegisterLoggingSink() noexcept {
  static Bind sink;
  static std::once_flag once;
  try {
    std::call_once(once, [] { sink.Register(); });
  } catch (...) {
    // Out of memory while registering: tracing stays quiet, the caller goes on.
  }
}

}  // namespace Logging
