#include "module.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace vrig {

std::string ExecutableFolder() {
  std::vector<char> path(4096);
  const ssize_t n = readlink("/proc/self/exe", path.data(), path.size() - 1);
  if (n <= 0) return ".";
  std::string p(path.data(), static_cast<size_t>(n));
  return p.substr(0, p.find_last_of('/'));
}

Module::Module() {
  std::vector<std::string> candidates;
  if (const char* explicitPath = std::getenv("VELLUMRIG_LIBRARY"); explicitPath && *explicitPath)
    candidates.push_back(explicitPath);
  // The build tree keeps it in lib beside bin; an installed tree wherever
  // its library folder is.
  const std::string folder = ExecutableFolder();
  candidates.push_back(folder + "/../lib/" VELLUMRIG_MODULE_NAME);
#ifdef VRIG_LIBDIR_FROM_BINDIR
  if (std::string(VRIG_LIBDIR_FROM_BINDIR) != "../lib")
    candidates.push_back(folder + "/" VRIG_LIBDIR_FROM_BINDIR "/" VELLUMRIG_MODULE_NAME);
#endif
  candidates.push_back(VELLUMRIG_MODULE_NAME);
  std::string failures;
  for (const auto& candidate : candidates) {
    handle_ = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_) break;
    failures += "\n    ";
    failures += dlerror();
  }
  if (!handle_) throw std::runtime_error("Cannot load the vellumrig module:" + failures);
  open_ = reinterpret_cast<SafeOpenVirtualServerFn*>(dlsym(handle_, kSafeOpenVirtualServerName));
  if (!open_) {
    const std::string why = dlerror();
    dlclose(handle_);
    throw std::runtime_error("The vellumrig module has no entry point: " + why);
  }
}

// The module stays loaded: objects it made may still be released by static
// destructors of the host.
Module::~Module() = default;

Common::Error Module::OpenServer(
    Processor::AutoRef<VirtualWareRaw::SafeVirtualServer>& server) const {
  Common::Error error;
  open_(error, static_cast<std::int32_t>(VirtualWareRaw::SERVER_TYPE_MS_VIRTUAL_PC), server);
  return error;
}

}  // namespace vrig
