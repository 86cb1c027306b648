// The default behaviour of the file family: operations a file does not
// support store 0x4000E "The operation is not supported.".
#include "common/file_errors.h"
#include "common/site.h"
#include "vellumrig/file.h"

namespace {

void NotSupported(file_object& file, const char* function) {
  static constexpr char kFile[] = "core\\file\\file";
  if (file.Status.IsEmpty())
    file.Status = Common::NotSupportedError(
        Common::ErrorSite{Common::detail::FileConstant(kFile), kFile, function, 0});
}

}  // namespace

void file_object::IOCTL(void*) { NotSupported(*this, "file_object::IOCTL"); }
void raccess_file::Unlock() { NotSupported(*this, "raccess_file::Unlock"); }
void ri_file::LockShared() { NotSupported(*this, "ri_file::LockShared"); }
void ro_file::LockExclusive() { NotSupported(*this, "ro_file::LockExclusive"); }
