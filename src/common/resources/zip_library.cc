#include "common/resources/zip_library.h"

#include <mutex>

#include "common/delay_load.h"

namespace Common::Resources {

const ZipLibrary& Zip() {
  static std::mutex lock;
  static ZipLibrary functions{};
  static bool loaded = false;
  static auto* library = new DelayLoadedLibrary("libzip.so.4");  // stays loaded to process end
  std::lock_guard<std::mutex> guard(lock);
  if (!loaded) {
    ZipLibrary f{};
#define VR_BIND(field) f.field = reinterpret_cast<decltype(f.field)>(library->Function("zip_" #field))
    VR_BIND(source_file_create);
    VR_BIND(source_buffer_create);
    VR_BIND(source_free);
    VR_BIND(open_from_source);
    VR_BIND(discard);
    VR_BIND(stat_init);
    VR_BIND(stat);
    VR_BIND(fopen);
    VR_BIND(fread);
    VR_BIND(fclose);
    VR_BIND(file_strerror);
    VR_BIND(error_init);
    VR_BIND(error_fini);
    VR_BIND(error_strerror);
#undef VR_BIND
    functions = f;
    loaded = true;
  }
  return functions;
}

}  // namespace Common::Resources
