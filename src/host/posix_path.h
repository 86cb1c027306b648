// Lexical path arithmetic for the POSIX folder. Host library only.
//
// Folders are named by absolute, normalised UTF-8 paths: "/" or "/a/b", no
// "." or ".." components, no doubled or trailing separators. Everything here
// is lexical: a folder may be named before it exists (a machine's folder is
// opened, then created), and ".." of a folder reached through a symbolic link
// is the folder above the link, as the path reads.
#pragma once

#include <string>
#include <string_view>

namespace Host::detail {

// Both separators of the paths the module hands over: those written on
// Windows (parent locators, .vmc files) use '\'.
inline bool IsPathSeparator(char16_t c) { return c == u'/' || c == u'\\'; }

// `name` taken from the folder `base` (a normalised path): an absolute name
// starts from "/", a relative one from `base`; "." is dropped, ".." climbs
// (and stays at "/" at the top), empty components vanish.
std::string ResolvePath(std::string_view base, std::u16string_view name);
// The same for a name already in UTF-8 (from the environment or the disk).
std::string ResolvePath(std::string_view base, std::string_view utf8Name);

// The current folder, normalised; false when the system cannot tell it (the
// folder was removed, or its path is out of reach).
bool CurrentFolder(std::string& path);

// The folder above a normalised path; "/" for "/".
std::string ParentPath(std::string_view path);

// The last component of a normalised path; empty for "/".
std::string_view LastComponent(std::string_view path);

// Where the last component of `path` starts, for OpenParentFolder: after the
// last separator that is followed by more than separators, 0 when there is
// none. For a path of separators only, its length.
std::size_t LastComponentStart(std::u16string_view path);

}  // namespace Host::detail
