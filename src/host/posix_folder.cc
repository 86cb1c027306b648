// The POSIX folder object. A folder is its normalised path and nothing more:
// no descriptor is held, so a folder may be named before it exists and
// outlives its removal, and every operation looks at the disk afresh.
#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "common/site.h"
#include "host/posix_errors.h"
#include "host/posix_file.h"
#include "host/posix_path.h"
#include "vellumrig/error_text.h"
#include "vellumrig/host.h"

namespace Host {
namespace detail {
namespace {

class Item final : public dir_item {
 public:
  Item(std::u16string name, bool folder, std::uint64_t size)
      : name_(std::move(name)), folder_(folder), size_(size) {}
  std::u16string Name() const override { return name_; }
  bool IsFolder() const override { return folder_; }
  std::uint64_t Size() const override { return size_; }

 private:
  const std::u16string name_;
  const bool folder_;
  const std::uint64_t size_;
};

Processor::AutoRef<dir_item> MakeItem(std::string_view path, const struct stat& st) {
  const bool folder = S_ISDIR(st.st_mode);
  return Processor::AutoRef<dir_item>::Adopt(
      new Item(Common::FromUtf8(LastComponent(path)), folder,
               folder ? 0 : static_cast<std::uint64_t>(st.st_size)));
}

struct Entry {
  std::string Name;  // as on disk, so that OpenEntry finds it whatever its bytes
  bool Folder;
};

// A snapshot of a folder taken when it was made: later changes on disk do
// not show, and listing twice gives the same order.
class Enumerator final : public dir_enumerator {
 public:
  Enumerator(std::string folder, std::vector<Entry> entries)
      : folder_(std::move(folder)), entries_(std::move(entries)) {
    if (entries_.empty()) Fail(CodeError(VR_SITE, FileError::EndOfFile));
  }

  bool Next() override {
    if (index_ < entries_.size()) ++index_;
    if (index_ < entries_.size()) return true;
    Fail(CodeError(VR_SITE, FileError::EndOfFile));
    return false;
  }

  std::uint32_t GetKind() const override {
    const Entry* entry = Current();
    return !entry ? 0 : entry->Folder ? kFolderEntryKind : kFileEntryKind;
  }

  std::u16string Name() const override {
    const Entry* entry = Current();
    return entry ? Common::FromUtf8(entry->Name) : std::u16string();
  }

  const Entry* Current() const { return index_ < entries_.size() ? &entries_[index_] : nullptr; }
  const std::string& Folder() const { return folder_; }

 private:
  const std::string folder_;
  const std::vector<Entry> entries_;
  std::size_t index_ = 0;
};

// 0, or the errno that kept `path` from being made with its parents.
// Finds the deepest folder that exists, then makes the rest downwards.
int MakeFolderChain(const std::string& path) {
  std::vector<std::string> missing;
  for (std::string at = path;; at = ParentPath(at)) {
    struct stat st;
    if (::stat(at.c_str(), &st) == 0) {
      if (!S_ISDIR(st.st_mode)) return ENOTDIR;
      break;
    }
    if (errno != ENOENT) return errno;
    missing.push_back(at);
    if (at == "/") break;
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it)
    if (::mkdir(it->c_str(), 0777) != 0 && errno != EEXIST) return errno;
  return 0;
}

std::string HomeFolder() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  struct passwd entry;
  struct passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
      found->pw_dir && *found->pw_dir)
    return found->pw_dir;
  return {};
}

// The absolute form of a path from the environment; empty when a relative
// one cannot be placed.
std::string FromEnvironment(const char* value) {
  if (*value == '/') return ResolvePath("/", std::string_view(value));
  std::string current;
  if (!CurrentFolder(current)) return {};
  return ResolvePath(current, std::string_view(value));
}

std::string MachinesFolderPath() {
  if (const char* own = std::getenv(kMachinesFolderVariable); own && *own)
    return FromEnvironment(own);
  // The XDG rules say a relative XDG_DATA_HOME is to be ignored.
  if (const char* data = std::getenv("XDG_DATA_HOME"); data && *data == '/')
    return ResolvePath(ResolvePath("/", std::string_view(data)),
                       std::string_view("vellumrig/machines"));
  const std::string home = HomeFolder();
  if (home.empty() || home[0] != '/') return {};
  return ResolvePath(ResolvePath("/", std::string_view(home)),
                     std::string_view(".local/share/vellumrig/machines"));
}

class PosixFolder final : public rio_dir {
 public:
  PosixFolder(std::string path, bool readOnly) : path_(std::move(path)), readOnly_(readOnly) {}

  std::unique_ptr<i_file> OpenFile(const std::u16string& name, std::uint32_t mode) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Open, path)) return nullptr;
    Common::Error error;
    std::unique_ptr<i_file> file;
    if (mode == kOpenRead) {
      file = OpenFileForReading(path, error);
    } else if (mode == kOpenReadWrite) {
      if (Refuse(VR_SITE, path)) return nullptr;
      file = OpenFileForWriting(path, false, error);
    } else {
      error = CodeError(VR_SITE, FileError::NotSupported, path);
    }
    Fail(error);
    return file;
  }

  std::unique_ptr<rio_dir> OpenEntry(const dir_enumerator& entry) override {
    std::string path;
    bool folder = false;
    if (const auto* own = dynamic_cast<const Enumerator*>(&entry)) {
      if (const Entry* current = own->Current()) {
        path = own->Folder() == "/" ? "/" + current->Name : own->Folder() + "/" + current->Name;
        folder = current->Folder;
      }
    } else if (const std::u16string name = entry.Name(); !name.empty()) {
      // Another host's enumerator: its entry is taken to be in this folder.
      path = ResolvePath(path_, name);
      folder = entry.GetKind() == kFolderEntryKind;
    }
    if (path.empty()) {
      Fail(CodeError(VR_SITE, FileError::NotFound));
      return nullptr;
    }
    if (!folder) {
      Fail(ErrnoError(VR_SITE, FileError::Open, ENOTDIR, path));
      return nullptr;
    }
    return Make(std::move(path));
  }

  std::unique_ptr<rio_dir> OpenFolder(const std::u16string& name) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Open, path)) return nullptr;
    // A missing folder is fine (it may be created through the new object);
    // a file of that name is not.
    struct stat st;
    if (::stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) {
      Fail(ErrnoError(VR_SITE, FileError::Open, ENOTDIR, path));
      return nullptr;
    }
    return Make(std::move(path));
  }

  std::unique_ptr<rio_dir> OpenParentFolder(const char16_t*& path) override {
    if (!path) {
      Fail(ErrnoError(VR_SITE, FileError::Open, EINVAL));
      return nullptr;
    }
    const std::u16string_view whole(path);
    const std::size_t start = LastComponentStart(whole);
    std::string folder = ResolvePath(path_, whole.substr(0, start));
    path += start;
    return Make(std::move(folder));
  }

  std::unique_ptr<rio_dir> OpenSpecialFolder(std::uint32_t kind) override {
    if (kind != kMachinesFolder) {
      Fail(CodeError(VR_SITE, FileError::NotSupported));
      return nullptr;
    }
    std::string path = MachinesFolderPath();
    if (path.empty()) {
      Fail(ErrnoError(VR_SITE, FileError::Open, ENOENT));
      return nullptr;
    }
    if (!readOnly_) {
      if (const int error = MakeFolderChain(path)) {
        Fail(ErrnoError(VR_SITE, FileError::Create, error, path));
        return nullptr;
      }
    }
    return Make(std::move(path));
  }

  Processor::AutoRef<dir_item> Find(const std::u16string& name) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Open, path)) return nullptr;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
      if (errno != ENOENT && errno != ENOTDIR)
        Fail(ErrnoError(VR_SITE, FileError::Open, errno, path));
      return nullptr;
    }
    return MakeItem(path, st);
  }

  std::unique_ptr<dir_enumerator> Enumerate() override {
    DIR* dir = ::opendir(path_.c_str());
    if (!dir) {
      Fail(ErrnoError(VR_SITE, FileError::Open, errno, path_));
      return nullptr;
    }
    std::vector<Entry> entries;
    int readError = 0;
    for (;;) {
      errno = 0;
      const dirent* d = ::readdir(dir);
      if (!d) {
        readError = errno;
        break;
      }
      const std::string_view name(d->d_name);
      if (name == "." || name == "..") continue;
      bool folder = d->d_type == DT_DIR;
      if (d->d_type == DT_LNK || d->d_type == DT_UNKNOWN) {
        // A link is what it points to; a broken one lists as a file.
        struct stat st;
        folder = ::fstatat(::dirfd(dir), d->d_name, &st, 0) == 0 && S_ISDIR(st.st_mode);
      }
      entries.push_back(Entry{std::string(name), folder});
    }
    ::closedir(dir);
    if (readError != 0) {
      Fail(ErrnoError(VR_SITE, FileError::Read, readError, path_));
      return nullptr;
    }
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.Name < b.Name; });
    return std::make_unique<Enumerator>(path_, std::move(entries));
  }

  Processor::AutoRef<dir_item> Self() override {
    struct stat st;
    int error = 0;
    if (::stat(path_.c_str(), &st) != 0) error = errno;
    else if (!S_ISDIR(st.st_mode)) error = ENOTDIR;
    if (error != 0) {
      Fail(ErrnoError(VR_SITE, FileError::Open, error, path_));
      return nullptr;
    }
    return MakeItem(path_, st);
  }

  std::u16string FullPath() override {
    return path_ == "/" ? std::u16string() : Common::FromUtf8(path_) + u'/';
  }

  int IsSameFolder(rio_dir& other) override {
    std::string otherPath;
    if (const auto* own = dynamic_cast<const PosixFolder*>(&other)) {
      otherPath = own->path_;
    } else {
      otherPath = ResolvePath("/", other.FullPath());
    }
    struct stat mine, theirs;
    if (::stat(path_.c_str(), &mine) == 0 && ::stat(otherPath.c_str(), &theirs) == 0)
      return mine.st_dev == theirs.st_dev && mine.st_ino == theirs.st_ino ? 1 : 0;
    return path_ == otherPath ? 1 : 0;
  }

  bool IsSeparator(char16_t c) const override { return IsPathSeparator(c); }
  char16_t Separator() const override { return u'/'; }

  std::unique_ptr<rio_file> CreateFile(const std::u16string& name, std::uint32_t,
                                       std::uint32_t) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Create, path) || Refuse(VR_SITE, path)) return nullptr;
    Common::Error error;
    std::unique_ptr<rio_file> file = OpenFileForWriting(path, true, error);
    Fail(error);
    return file;
  }

  void DeleteFile(const std::u16string& name) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Delete, path) || Refuse(VR_SITE, path)) return;
    if (::unlink(path.c_str()) != 0) Fail(ErrnoError(VR_SITE, FileError::Delete, errno, path));
  }

  void Rename(const std::u16string& oldName, const std::u16string& newName) override {
    std::string from, to;
    if (!Resolve(VR_SITE, oldName, FileError::Rename, from) ||
        !Resolve(VR_SITE, newName, FileError::Rename, to) || Refuse(VR_SITE, from))
      return;
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return;
    int error = errno;
    if (error == EINVAL || error == ENOSYS) {
      // A file system without the no-replace flag: look first. Another
      // process may slip in between; there is no better on such a system.
      struct stat st;
      if (::lstat(to.c_str(), &st) == 0) error = EEXIST;
      else error = ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
    }
    if (error != 0) Fail(ErrnoError(VR_SITE, FileError::Rename, error, from));
  }

  void IOCTL(void* command) override {
    const auto* replace = static_cast<const ReplaceCommand*>(command);
    if (!replace || std::memcmp(replace->Tag, "RPLC", 4) != 0 || !replace->From || !replace->To) {
      rio_dir::IOCTL(command);
      return;
    }
    std::string from, to;
    if (!Resolve(VR_SITE, replace->From, FileError::Rename, from) ||
        !Resolve(VR_SITE, replace->To, FileError::Rename, to) || Refuse(VR_SITE, from))
      return;
    if (::rename(from.c_str(), to.c_str()) != 0) {
      Fail(ErrnoError(VR_SITE, FileError::Rename, errno, from));
      return;
    }
    // The new name is on disk only once the folder is: until then a crash
    // could bring the old file back after the caller was told otherwise.
    const int folder = ::open(to.substr(0, to.rfind('/') + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
      ::fsync(folder);
      ::close(folder);
    }
  }

  void CreateFolder(const std::u16string& name) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Create, path) || Refuse(VR_SITE, path)) return;
    if (::mkdir(path.c_str(), 0777) != 0) Fail(ErrnoError(VR_SITE, FileError::Create, errno, path));
  }

  void DeleteFolder(const std::u16string& name) override {
    std::string path;
    if (!Resolve(VR_SITE, name, FileError::Delete, path) || Refuse(VR_SITE, path)) return;
    if (::rmdir(path.c_str()) != 0) Fail(ErrnoError(VR_SITE, FileError::Delete, errno, path));
  }

 private:
  // `name` from this folder into `path`; false, with the error pending, for
  // a name the system cannot take (an embedded NUL would cut it short).
  bool Resolve(const Common::ErrorSite& site, const std::u16string& name, std::uint32_t operation,
               std::string& path) {
    if (name.find(u'\0') != std::u16string::npos) {
      Fail(ErrnoError(site, operation, EINVAL));
      return false;
    }
    path = ResolvePath(path_, name);
    return true;
  }

  bool Refuse(const Common::ErrorSite& site, const std::string& path) {
    if (readOnly_) Fail(CodeError(site, FileError::ReadOnly, path));
    return readOnly_;
  }

  std::unique_ptr<rio_dir> Make(std::string path) const {
    return std::make_unique<PosixFolder>(std::move(path), readOnly_);
  }

  const std::string path_;
  const bool readOnly_;
};

}  // namespace
}  // namespace detail

std::unique_ptr<rio_dir> OpenFolder(const std::u16string& path, bool readOnly) {
  std::string base = "/";
  if (path.empty() || !detail::IsPathSeparator(path[0])) {
    if (!detail::CurrentFolder(base)) return nullptr;
  }
  return std::make_unique<detail::PosixFolder>(detail::ResolvePath(base, path), readOnly);
}

std::u16string DefaultMachinesFolder() {
  return Common::FromUtf8(detail::MachinesFolderPath());
}

}  // namespace Host
