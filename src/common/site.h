// VR_SITE: the ErrorSite of the line where it stands, for raising errors.
// Module-internal.
//
// A site's Hash is a fixed 64-bit constant of its source file plus the line.
// The constant is a hash of the file's path relative to the source tree (the
// build maps absolute paths away), so it stays fixed from build to build.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vellumrig/error.h"

namespace Common::detail {

consteval std::uint64_t FileConstant(const char* path) {
  std::uint64_t hash = 0xCBF29CE484222325ull;  // FNV-1a
  for (; *path; ++path) {
    hash ^= static_cast<unsigned char>(*path);
    hash *= 0x100000001B3ull;
  }
  return hash;
}

template <std::size_t N>
struct FunctionName {
  char Text[N]{};
};

// Cuts a compiler's pretty function name down to its qualified name:
// "Common::Error Common::Error::AddWindowsError(int)" becomes
// "Common::Error::AddWindowsError".
template <std::size_t N>
consteval FunctionName<N> QualifiedName(const char (&pretty)[N]) {
  std::size_t end = N - 1;
  int depth = 0;
  for (std::size_t i = 0; i + 1 < N; ++i) {
    const char c = pretty[i];
    if (c == '<') ++depth;
    else if (c == '>') --depth;
    else if (c == '(' && depth == 0) { end = i; break; }
  }
  std::size_t begin = 0;
  depth = 0;
  for (std::size_t i = 0; i < end; ++i) {
    const char c = pretty[i];
    if (c == '<') ++depth;
    else if (c == '>') --depth;
    else if (c == ' ' && depth == 0) begin = i + 1;
  }
  FunctionName<N> name;
  for (std::size_t i = begin; i < end; ++i) name.Text[i - begin] = pretty[i];
  return name;
}

}  // namespace Common::detail

#define VR_FUNCTION                                                                   \
  (__extension__({                                                                    \
    static constexpr auto vr_function_name_ =                                         \
        ::Common::detail::QualifiedName(__PRETTY_FUNCTION__);                         \
    vr_function_name_.Text;                                                           \
  }))

#define VR_SITE                                                                       \
  (::Common::ErrorSite{::Common::detail::FileConstant(__FILE__) + __LINE__, __FILE__, \
                       VR_FUNCTION, __LINE__})
