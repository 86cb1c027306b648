// Loading libvellumrig.so the way any host does: dlopen, then dlsym of the
// one export.
#pragma once

#include <string>

#include "vellumrig/vellumrig.h"

namespace vrig {

// The folder vrig runs from.
std::string ExecutableFolder();

class Module {
 public:
  // Where the module (VELLUMRIG_MODULE_NAME) is looked for:
  // $VELLUMRIG_LIBRARY, then <folder of vrig>/../lib, then the installed
  // library folder relative to vrig's, then the loader's search path.
  // Throws std::runtime_error with the loader's text when it is not found.
  Module();
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Opens the server; a refusal is returned as the module's error.
  Common::Error OpenServer(Processor::AutoRef<VirtualWareRaw::SafeVirtualServer>& server) const;

 private:
  void* handle_ = nullptr;
  SafeOpenVirtualServerFn* open_ = nullptr;
};

}  // namespace vrig
