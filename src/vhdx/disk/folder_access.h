// The engine's three uses of a host folder: the folder that holds a path,
// a container file in it, and the deletion of one. Each turns a refusal of
// the folder into an engine error with the folder's own error as reason.
// Module-internal; the disk hierarchy, creation and deletion use them.
#pragma once

#include <memory>
#include <string>

#include "vellumrig/folder.h"

namespace Vhdx {

struct FolderOfFile {
  std::unique_ptr<rio_dir> Folder;
  std::u16string Name;  // the path's last component
};

// Raises 0x3C002D naming `path`.
FolderOfFile OpenDirOfFile(rio_dir& dir, const std::u16string& path);
// Mode 0 gives an ri_file, 1 an rio_file; raises 0x3C002C naming `name`.
std::unique_ptr<i_file> OpenFile(rio_dir& dir, const std::u16string& name, bool writable);
// Raises 0x3C002E naming `name`.
void DeleteFile(rio_dir& dir, const std::u16string& name);

}  // namespace Vhdx
