#include "host/posix_errors.h"

#include <cerrno>
#include <string>

#include "common/file_errors.h"
#include "vellumrig/error_text.h"
#include "vellumrig/file.h"

namespace Host::detail {

std::uint32_t FileErrorOfErrno(int error, std::uint32_t operation) noexcept {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      return FileError::DiskFull;
    case ENOENT:
    case ENOTDIR:
      return FileError::NotFound;
    case EEXIST:
      return FileError::Exists;
    case ENOTEMPTY:
      // rmdir says "not empty", which is no reason to call the folder existing;
      // rename onto a full folder says the target is in the way.
      return operation == FileError::Delete ? operation : FileError::Exists;
    case EACCES:
    case EPERM:
      return FileError::AccessDenied;
    case EROFS:
      return FileError::ReadOnly;
    case EBUSY:
    case ETXTBSY:
      return FileError::Busy;
    case ENOMEM:
      return FileError::NoMemory;
    case ENOMEDIUM:
      return FileError::DriveNotReady;
    case ECANCELED:
      return FileError::Canceled;
    case ESTALE:
    case ENOTCONN:
    case ECONNRESET:
    case ENETDOWN:
    case ENETUNREACH:
    case EHOSTUNREACH:
      return FileError::NetworkDisconnected;
    case ETIMEDOUT:
      return FileError::NetworkTimeout;
    // A file system without locks answers like a file without them.
    case EOPNOTSUPP:
    case ENOSYS:
      return FileError::NotSupported;
    default:
      // EAGAIN lands here: on a lock the operation's code is already 0x40017.
      return operation;
  }
}

Common::Error CodeError(const Common::ErrorSite& site, std::uint32_t code, std::string_view path) {
  if (path.empty()) return Common::FileErrorOf(site, code);
  const std::u16string_view text = Common::FileErrorText(code);
  const std::u16string name = Common::FromUtf8(path);
  return Common::Error::WithFileName(site, code, text.empty() ? nullptr : text.data(),
                                     name.c_str());
}

Common::Error ErrnoError(const Common::ErrorSite& site, std::uint32_t operation, int error,
                         std::string_view path) {
  Common::Error result = CodeError(site, FileErrorOfErrno(error, operation), path);
  result.AddWindowsError(error);
  return result;
}

}  // namespace Host::detail
