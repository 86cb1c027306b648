// Libraries loaded on first use, and the errors when they cannot be:
// 0x140FA1 for a library that does not load (field `path`), 0x140FA2 for a
// function not found by name (`path`, `function`), 0x140FA3 by ordinal. Each
// carries the system's error as its cause. Used by the module.
#pragma once

#include <cstdint>
#include <string>

#include "vellumrig/error.h"

namespace Common {

inline constexpr std::uint32_t kDelayLoadModuleError = 0x140FA1;
inline constexpr std::uint32_t kDelayLoadFunctionError = 0x140FA2;
inline constexpr std::uint32_t kDelayLoadOrdinalError = 0x140FA3;

// What the loader could not do, as the failure hook is told it.
enum class DelayLoadFailure { Library = 3, Function = 4 };

// Builds the error for a failed load; `function` null means by ordinal.
Error DelayLoadError(DelayLoadFailure failure, const char* path, const char* function,
                     std::uint64_t ordinal, int systemError) noexcept;

class DelayLoadedLibrary {
 public:
  explicit DelayLoadedLibrary(std::string path) : path_(std::move(path)) {}
  ~DelayLoadedLibrary();
  DelayLoadedLibrary(const DelayLoadedLibrary&) = delete;
  DelayLoadedLibrary& operator=(const DelayLoadedLibrary&) = delete;

  // Loads the library at the first call; throws 0x140FA1 when it cannot.
  void Load();
  // The address of a function; throws 0x140FA1 or 0x140FA2.
  void* Function(const char* name);
  template <class F>
  F* Function(const char* name) {
    return reinterpret_cast<F*>(Function(name));
  }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  void* handle_ = nullptr;
};

}  // namespace Common
