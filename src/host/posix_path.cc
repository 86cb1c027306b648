#include "host/posix_path.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#include "vellumrig/error_text.h"

namespace Host::detail {
namespace {

void Push(std::vector<std::string_view>& parts, std::string_view component) {
  if (component.empty() || component == ".") return;
  if (component == "..") {
    if (!parts.empty()) parts.pop_back();
    return;
  }
  parts.push_back(component);
}

void Split(std::vector<std::string_view>& parts, std::string_view path) {
  std::size_t begin = 0;
  while (begin <= path.size()) {
    std::size_t end = path.find_first_of("/\\", begin);
    if (end == std::string_view::npos) end = path.size();
    Push(parts, path.substr(begin, end - begin));
    begin = end + 1;
  }
}

}  // namespace

std::string ResolvePath(std::string_view base, std::u16string_view name) {
  // Separators are ASCII, so splitting the UTF-8 form is safe.
  return ResolvePath(base, std::string_view(Common::ToUtf8(name)));
}

std::string ResolvePath(std::string_view base, std::string_view utf8) {
  std::vector<std::string_view> parts;
  if (utf8.empty() || (utf8[0] != '/' && utf8[0] != '\\')) Split(parts, base);
  Split(parts, utf8);
  if (parts.empty()) return "/";
  std::string out;
  for (const std::string_view part : parts) {
    out += '/';
    out += part;
  }
  return out;
}

bool CurrentFolder(std::string& path) {
  std::string buffer(256, '\0');
  for (;;) {
    if (::getcwd(buffer.data(), buffer.size())) break;
    if (errno != ERANGE) return false;
    buffer.resize(buffer.size() * 2);
  }
  // getcwd marks an unreachable folder with a leading "(unreachable)".
  if (buffer[0] != '/') return false;
  path = ResolvePath("/", std::string_view(buffer.c_str()));
  return true;
}

std::string ParentPath(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string_view::npos || slash == 0) return "/";
  return std::string(path.substr(0, slash));
}

std::string_view LastComponent(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::size_t LastComponentStart(std::u16string_view path) {
  std::size_t end = path.size();
  while (end > 0 && IsPathSeparator(path[end - 1])) --end;
  if (end == 0) return path.size();
  std::size_t start = end;
  while (start > 0 && !IsPathSeparator(path[start - 1])) --start;
  return start;
}

}  // namespace Host::detail
