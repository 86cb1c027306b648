// The module's own resources: the archive built into it, opened once per
// process. Module-internal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/resources/resource_api.h"
#include "vellumrig/error.h"
#include "vellumrig/file.h"

namespace Common {

// The open archive of the module, or null when it cannot be read.
Resources::ModuleHandle GetResourceModule();
// Why the module has no resources, to hang behind an error that needs one:
// a missing libzip names its package. Empty when the archive is open.
Error ResourcesUnavailable();
// Closes it; the shutdown routine calls this at process end.
void CloseResourceModule();
// Tests only: read the resources from the zip file at `path` instead of the
// archive built in. Takes effect at the first use.
void SetResourceArchiveFile(const std::string& path);

// A file of the archive as an si_file, or null when there is none by that name.
std::unique_ptr<si_file> OpenResourceFile(const std::u16string& name);
// A file of the archive in a new buffer, or null.
std::unique_ptr<std::uint8_t[]> LoadResourceFile(const std::u16string& name, std::size_t& size);

}  // namespace Common
