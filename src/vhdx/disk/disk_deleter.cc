#include "vhdx/disk/disk_deleter.h"

#include <vector>

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/disk/disk_file_hierarchy.h"
#include "vhdx/format/errors.h"
#include "vhdx/disk/folder_access.h"

namespace Vhdx {

void DiskDeleter::Delete(rio_dir& dir, const std::u16string& name) {
  try {
    std::vector<std::u16string> names;
    {
      OnlyCheckingMetadataConsumer consumer;
      const std::unique_ptr<DiskFileHierarchy> top = OpenHierarchy(dir, name, consumer, true);
      for (const DiskFileHierarchy* file = top.get(); file; file = file->GetParent())
        names.push_back(file->GetFullName());
    }  // every file closed before the first deletion
    std::unique_ptr<rio_dir> held;
    rio_dir* folder = &dir;
    for (const std::u16string& fullName : names) {
      FolderOfFile place = OpenDirOfFile(*folder, fullName);
      held = std::move(place.Folder);
      folder = held.get();
      DeleteFile(*folder, place.Name);
    }
  } catch (const Common::Error& cause) {
    Common::Error error = Common::MessageError(VR_SITE, kDeleteFailed);
    error.AddReason(cause);
    throw error;
  }
}

}  // namespace Vhdx
