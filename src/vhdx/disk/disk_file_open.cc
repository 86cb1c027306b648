#include "vhdx/disk/disk_file_open.h"

#include "common/message_error.h"
#include "common/site.h"
#include "vhdx/disk/disk_file_impl.h"
#include "vhdx/format/errors.h"
#include "vhdx/disk/file_assembly.h"
#include "vhdx/format/file_validator.h"
#include "vhdx/log/non_persistent_file_wrapper.h"
#include "vhdx/log/play_log.h"
#include "vhdx/file/read_only_file.h"
#include "vhdx/file/writeable_file.h"

namespace Vhdx {

std::unique_ptr<DiskFile> OpenReadOnlyDiskFile(ri_file& file, SelectiveMetadataConsumer& consumer) {
  auto readOnly = std::make_unique<ReadOnlyFile>(file);
  FileValidator::CheckVersion(*readOnly);
  // The log is played into memory: the open sees the state the log
  // describes, and the file keeps its log for the next writable open.
  auto wrapper = std::make_unique<NonPersistentFileWrapper>(std::move(readOnly));
  const bool replayed = PlayLog(*wrapper);
  return std::make_unique<DiskFileImpl>(std::make_unique<ReadOnlyFileAssembly>(std::move(wrapper)), replayed,
                                        consumer);
}

std::unique_ptr<DiskFile> OpenWritableDiskFile(rio_file& file, SelectiveMetadataConsumer& consumer) {
  auto writeable = std::make_unique<WriteableFile>(file);
  FileValidator::CheckVersion(*writeable);
  auto assembly = std::make_unique<WritableFileAssembly>(std::move(writeable));
  // Through the structure file, so that the replay's first write renews
  // the file write GUID.
  const bool replayed = PlayLog(assembly->GetStructureFile());
  return std::make_unique<DiskFileImpl>(std::move(assembly), replayed, consumer);
}

FileHoldingDiskFile::FileHoldingDiskFile(std::unique_ptr<i_file> file, bool writable,
                                         SelectiveMetadataConsumer& consumer)
    : HostFileHolder(std::move(file)), DiskFileDelegate(Open(*file_, writable, consumer)) {}

std::unique_ptr<DiskFile> FileHoldingDiskFile::Open(i_file& file, bool writable, SelectiveMetadataConsumer& consumer) {
  if (writable) {
    if (auto* rio = dynamic_cast<rio_file*>(&file)) return OpenWritableDiskFile(*rio, consumer);
    throw Common::MessageError(VR_SITE, kReadOnly);
  }
  if (auto* ri = dynamic_cast<ri_file*>(&file)) return OpenReadOnlyDiskFile(*ri, consumer);
  // A folder gives random-access files; a stream cannot hold a container.
  throw Common::MessageError(VR_SITE, kInternalError);
}

}  // namespace Vhdx
