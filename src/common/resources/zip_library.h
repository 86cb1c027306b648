// libzip, loaded at first use with dlopen: the module runs without it (in
// English, without resources), and a missing library or function is told
// by the delay-load errors. Module-internal.
#pragma once

#include <zip.h>

#include "vellumrig/error.h"

namespace Common::Resources {

// The cause behind a delay-load error of libzip: it names the library and
// the package that brings it.
inline constexpr std::uint32_t kZipLibraryPackageError = 0x140FA4;

struct ZipLibrary {
  decltype(&::zip_source_file_create) source_file_create;
  decltype(&::zip_source_buffer_create) source_buffer_create;
  decltype(&::zip_source_free) source_free;
  decltype(&::zip_open_from_source) open_from_source;
  decltype(&::zip_discard) discard;
  decltype(&::zip_stat_init) stat_init;
  decltype(&::zip_stat) stat;
  decltype(&::zip_fopen) fopen;
  decltype(&::zip_fread) fread;
  decltype(&::zip_fclose) fclose;
  decltype(&::zip_file_strerror) file_strerror;
  decltype(&::zip_error_init) error_init;
  decltype(&::zip_error_fini) error_fini;
  decltype(&::zip_error_strerror) error_strerror;
};

// The library's functions; throws the delay-load error the first time and
// at every later call when the library or a function is missing.
const ZipLibrary& Zip();

// Why libzip cannot be used, for the errors a user sees: the delay-load
// error with a cause that names libzip and its package; empty when it
// loads. Its text comes from the catalogue, so no resource lock may be held.
Error ZipLibraryFailure();

// Tests only: the file dlopen looks for, to play a system without libzip.
void SetZipLibraryFile(const char* name);

}  // namespace Common::Resources
