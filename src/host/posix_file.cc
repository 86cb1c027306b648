#include "host/posix_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>

#include "common/message_table.h"
#include "common/site.h"
#include "host/posix_errors.h"
#include "vellumrig/error_text.h"

namespace Host::detail {
namespace {

// pread and pwrite move at most this much at once on Linux.
constexpr std::size_t kMaxTransfer = 0x7FFFF000;

template <class Base>
class DescriptorFile : public Base {
 public:
  DescriptorFile(int fd, std::string path) : fd_(fd), path_(std::move(path)) {}
  ~DescriptorFile() override { ::close(fd_); }

  std::size_t Read(void* buffer, std::size_t size) override {
    // A negative position reads as the end of data, as in a memory file.
    if (this->Failed() || size == 0 || position_ < 0) return 0;
    auto* out = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
      const std::size_t chunk = std::min(size - done, kMaxTransfer);
      const ssize_t n = ::pread(fd_, out + done, chunk, position_);
      if (n < 0) {
        if (errno == EINTR) continue;
        this->Fail(ErrnoError(VR_SITE, FileError::Read, errno, path_));
        break;
      }
      if (n == 0) break;  // the end
      done += static_cast<std::size_t>(n);
      position_ += n;
    }
    return done;
  }

  std::int64_t Seek(std::int64_t position) override { return position_ = position; }

  std::int64_t SeekCurrent(std::int64_t delta) override {
    std::int64_t target;
    if (__builtin_add_overflow(position_, delta, &target)) {
      this->Fail(ErrnoError(VR_SITE, FileError::Seek, EOVERFLOW, path_));
      return position_;
    }
    return position_ = target;
  }

  std::int64_t SeekEnd(std::int64_t delta) override {
    struct stat st;
    if (::fstat(fd_, &st) != 0) {
      this->Fail(ErrnoError(VR_SITE, FileError::Seek, errno, path_));
      return position_;
    }
    std::int64_t target;
    if (__builtin_add_overflow(static_cast<std::int64_t>(st.st_size), delta, &target)) {
      this->Fail(ErrnoError(VR_SITE, FileError::Seek, EOVERFLOW, path_));
      return position_;
    }
    return position_ = target;
  }

  // The system knows the size; no need to move the position to ask.
  std::uint64_t Size() override {
    if (this->Failed()) return 0;
    struct stat st;
    if (::fstat(fd_, &st) != 0) {
      this->Fail(ErrnoError(VR_SITE, FileError::Seek, errno, path_));
      return 0;
    }
    return static_cast<std::uint64_t>(st.st_size);
  }

  void Unlock() override {
    if (!this->Failed()) Lock(LOCK_UN);
  }

  void LockShared() override {
    if (!this->Failed()) Lock(LOCK_SH | LOCK_NB);
  }

  void IOCTL(void* command) override {
    auto* descriptor = static_cast<DescriptorCommand*>(command);
    if (!descriptor || std::memcmp(descriptor->Tag, "DESC", 4) != 0) {
      Base::IOCTL(command);
      return;
    }
    descriptor->Descriptor = fd_;
  }

 protected:
  void Lock(int operation) {
    while (::flock(fd_, operation) != 0) {
      if (errno == EINTR) continue;
      this->Fail(ErrnoError(VR_SITE, FileError::LockFailed, errno, path_));
      return;
    }
  }

  const int fd_;
  const std::string path_;
  std::int64_t position_ = 0;
};

class ReadFile final : public DescriptorFile<ri_file> {
 public:
  using DescriptorFile::DescriptorFile;
};

class ReadWriteFile final : public DescriptorFile<rio_file> {
 public:
  using DescriptorFile::DescriptorFile;

  std::size_t Write(const void* buffer, std::size_t size) override {
    if (Failed() || size == 0) return 0;
    if (position_ < 0) {
      Fail(ErrnoError(VR_SITE, FileError::Seek, EINVAL, path_));
      return 0;
    }
    const auto* in = static_cast<const char*>(buffer);
    std::size_t done = 0;
    while (done < size) {
      const std::size_t chunk = std::min(size - done, kMaxTransfer);
      const ssize_t n = ::pwrite(fd_, in + done, chunk, position_);
      if (n < 0) {
        if (errno == EINTR) continue;
        Fail(ErrnoError(VR_SITE, FileError::Write, errno, path_));
        break;
      }
      if (n == 0) {  // no progress and no reason: the device takes no more
        Fail(ErrnoError(VR_SITE, FileError::Write, ENOSPC, path_));
        break;
      }
      done += static_cast<std::size_t>(n);
      position_ += n;
    }
    return done;
  }

  void Flush() override {
    if (Failed()) return;
    while (::fdatasync(fd_) != 0) {
      if (errno == EINTR) continue;
      // Devices and pipes have nothing to put on disk.
      if (errno == EINVAL || errno == EROFS) return;
      Fail(ErrnoError(VR_SITE, FileError::Write, errno, path_));
      return;
    }
  }

  void Truncate(std::uint64_t size) override {
    if (Failed()) return;
    if (size > static_cast<std::uint64_t>(INT64_MAX)) {
      Fail(ErrnoError(VR_SITE, FileError::Write, EFBIG, path_));
      return;
    }
    while (::ftruncate(fd_, static_cast<off_t>(size)) != 0) {
      if (errno == EINTR) continue;
      Fail(ErrnoError(VR_SITE, FileError::Write, errno, path_));
      return;
    }
  }

  void LockExclusive() override {
    if (!Failed()) Lock(LOCK_EX | LOCK_NB);
  }
};

// Opens `path` as a regular file. Folders are refused (open(2) lets one
// read them as a file), and so are pipes, devices and sockets: opening a
// FIFO blocks until a writer comes, and none of them reads at offsets. The
// open is non-blocking so that the refusal comes at once.
int OpenDescriptor(const std::string& path, int flags, Common::Error& error) {
  int fd;
  do {
    fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK, 0666);
  } while (fd < 0 && errno == EINTR);
  const std::uint32_t operation = (flags & O_CREAT) ? FileError::Create : FileError::Open;
  if (fd < 0) {
    error = ErrnoError(VR_SITE, operation, errno, path);
    return -1;
  }
  struct stat st;
  int cause = 0;
  if (::fstat(fd, &st) != 0) cause = errno;
  else if (S_ISDIR(st.st_mode)) cause = EISDIR;
  else if (!S_ISREG(st.st_mode)) {
    ::close(fd);
    const std::u16string name = Common::FromUtf8(path);
    error = Common::Error::WithFileName(VR_SITE, operation, Common::GetMessage(Common::Msg::NotRegularFile),
                                        name.c_str());
    return -1;
  }
  if (cause == 0 && ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) cause = errno;
  if (cause != 0) {
    ::close(fd);
    error = ErrnoError(VR_SITE, operation, cause, path);
    return -1;
  }
  return fd;
}

// Two writers on one file, or a writer beside a reader, lose each other's
// work without a word: each keeps its own idea of the tables. Every open
// therefore holds a whole-file lock, shared for reading, exclusive for
// writing. It is an open-file-description lock, so two opens in one process
// keep each other out as two processes do, and qemu's image locks, which are
// of the same kind, see it and are seen.
bool LockWholeFile(int fd, bool exclusive, const std::string& path, Common::Error& error) {
  struct flock lock = {};
  lock.l_type = exclusive ? F_WRLCK : F_RDLCK;
  lock.l_whence = SEEK_SET;  // l_start and l_len 0: the whole file, however it grows
  while (::fcntl(fd, F_OFD_SETLK, &lock) != 0) {
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EACCES) {
      const std::u16string name = Common::FromUtf8(path);
      error = Common::Error::WithFileName(VR_SITE, FileError::LockFailed,
                                          Common::GetMessage(Common::Msg::FileInUse),
                                          name.c_str());
      error.AddWindowsError(errno);
    } else {
      error = ErrnoError(VR_SITE, FileError::LockFailed, errno, path);
    }
    return false;
  }
  return true;
}

template <class File>
std::unique_ptr<File> Wrap(int fd, const std::string& path, Common::Error& error) {
  try {
    return std::make_unique<File>(fd, path);
  } catch (const std::bad_alloc&) {
    ::close(fd);
    error = ErrnoError(VR_SITE, FileError::Open, ENOMEM, path);
    return nullptr;
  }
}

}  // namespace

std::unique_ptr<ri_file> OpenFileForReading(const std::string& path, Common::Error& error) {
  const int fd = OpenDescriptor(path, O_RDONLY, error);
  if (fd < 0) return nullptr;
  if (!LockWholeFile(fd, false, path, error)) {
    ::close(fd);
    return nullptr;
  }
  return Wrap<ReadFile>(fd, path, error);
}

std::unique_ptr<rio_file> OpenFileForWriting(const std::string& path, bool create,
                                             Common::Error& error) {
  // Emptied only once locked: a file in use elsewhere keeps its bytes.
  const int fd = OpenDescriptor(path, create ? O_RDWR | O_CREAT : O_RDWR, error);
  if (fd < 0) return nullptr;
  if (!LockWholeFile(fd, true, path, error)) {
    ::close(fd);
    return nullptr;
  }
  struct stat st;
  if (create && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode)) {
    int result;
    while ((result = ::ftruncate(fd, 0)) != 0 && errno == EINTR) {
    }
    if (result != 0) {
      error = ErrnoError(VR_SITE, FileError::Create, errno, path);
      ::close(fd);
      return nullptr;
    }
  }
  return Wrap<ReadWriteFile>(fd, path, error);
}

}  // namespace Host::detail
