#include "common/resources/zip_library.h"

#include <memory>
#include <mutex>
#include <vector>

#include "common/delay_load.h"
#include "common/message_error.h"
#include "common/site.h"

namespace Common::Resources {
namespace {

// The shared library of Debian 12 and the package that installs it.
constexpr char kLibraryFile[] = "libzip.so.4";
constexpr char16_t kPackage[] = u"libzip4";

struct State {
  std::mutex lock;
  ZipLibrary functions{};
  bool loaded = false;
  // Every library ever named stays loaded to process end, the last one in
  // use: open archives hold the functions of an earlier one.
  std::vector<std::unique_ptr<DelayLoadedLibrary>> libraries;
  State() { libraries.push_back(std::make_unique<DelayLoadedLibrary>(kLibraryFile)); }
};

State& Library() {
  static auto* state = new State;
  return *state;
}

}  // namespace

const ZipLibrary& Zip() {
  State& state = Library();
  std::lock_guard<std::mutex> guard(state.lock);
  if (!state.loaded) {
    DelayLoadedLibrary* library = state.libraries.back().get();
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
    state.functions = f;
    state.loaded = true;
  }
  return state.functions;
}

Error ZipLibraryFailure() {
  Error failure;
  try {
    Zip();
    return failure;
  } catch (const Error& e) {
    failure = e;
  }
  // The delay-load error tells only the file; a user needs to know what to
  // install. The system's error stays the last cause.
  Error hint = MessageError(VR_SITE, {kZipLibraryPackageError, Msg::LibraryNotLoaded},
                            {u"libzip", kPackage});
  hint.AddReason(failure.Reason());
  failure.AddReason(hint);
  return failure;
}

void SetZipLibraryFile(const char* name) {
  State& state = Library();
  std::lock_guard<std::mutex> guard(state.lock);
  state.libraries.push_back(std::make_unique<DelayLoadedLibrary>(name));
  state.loaded = false;
}

}  // namespace Common::Resources
