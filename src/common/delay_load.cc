#include "common/delay_load.h"

#include <dlfcn.h>

#include <cerrno>

#include "common/site.h"

namespace Common {
namespace {

constexpr char kFile[] = "core\\winex\\delayload";

ErrorSite HookSite(std::uint32_t line) {
  return ErrorSite{detail::FileConstant(kFile) + line, kFile, "FailureHook", line};
}

}  // namespace

Error DelayLoadError(DelayLoadFailure failure, const char* path, const char* function,
                     std::uint64_t ordinal, int systemError) noexcept {
  Error error;
  if (failure == DelayLoadFailure::Library)
    error = Error::ForModule(HookSite(72), kDelayLoadModuleError, path);
  else if (function)
    error = Error::ForFunction(HookSite(76), kDelayLoadFunctionError, path, function);
  else
    error = Error::ForFunction(HookSite(78), kDelayLoadOrdinalError, path, ordinal);
  error.AddWindowsError(systemError);
  return error;
}

DelayLoadedLibrary::~DelayLoadedLibrary() {
  if (handle_) dlclose(handle_);
}

void DelayLoadedLibrary::Load() {
  if (handle_) return;
  errno = 0;
  handle_ = dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    // dlopen keeps no errno of its own for a missing file: say so plainly.
    const int err = errno ? errno : ENOENT;
    throw DelayLoadError(DelayLoadFailure::Library, path_.c_str(), nullptr, 0, err);
  }
}

void* DelayLoadedLibrary::Function(const char* name) {
  Load();
  dlerror();
  void* address = dlsym(handle_, name);
  if (!address && dlerror())
    throw DelayLoadError(DelayLoadFailure::Function, path_.c_str(), name, 0, ENOENT);
  return address;
}

}  // namespace Common
