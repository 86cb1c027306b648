// The shutdown routine of the object framework, run once at process end or
// unload. Module-internal.
#pragma once

namespace Processor {

// Set when the first singleton is made; the routine runs the singleton part
// only when it is set.
void MarkFrameworkStarted() noexcept;
bool FrameworkStarted() noexcept;

// Raises the trace level to 6, destroys the singletons (when the framework
// was started) and every meta-class, and closes the resources.
void Shutdown();

}  // namespace Processor
