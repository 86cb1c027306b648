#include "vhdx/disk/folder_access.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/format/errors.h"

namespace Vhdx {

namespace {

[[noreturn]] void RaiseWithFolderError(const Common::ErrorSite& site, ErrorMessage message,
                                       const std::u16string& name, rio_dir& dir) {
  Common::Error error = Common::MessageError(site, message, {name});
  error.AddReason(dir.TakeError());
  throw error;
}

}  // namespace

FolderOfFile OpenDirOfFile(rio_dir& dir, const std::u16string& path) {
  const char16_t* rest = path.c_str();
  std::unique_ptr<rio_dir> folder = dir.OpenParentFolder(rest);
  if (!folder) RaiseWithFolderError(VR_SITE, kOpenDirFailed, path, dir);
  return {std::move(folder), rest};
}

std::unique_ptr<i_file> OpenFile(rio_dir& dir, const std::u16string& name, bool writable) {
  std::unique_ptr<i_file> file = dir.OpenFile(name, writable ? kOpenReadWrite : kOpenRead);
  if (!file) RaiseWithFolderError(VR_SITE, kOpenFileFailed, name, dir);
  return file;
}

void DeleteFile(rio_dir& dir, const std::u16string& name) {
  dir.DeleteFile(name);
  if (Common::Error error = dir.TakeError()) {
    Common::Error raised = Common::MessageError(VR_SITE, kDeleteFileFailed, {name});
    raised.AddReason(error);
    throw raised;
  }
}

}  // namespace Vhdx
