#include "provider/file_utilities.h"

#include <atomic>
#include <cstring>
#include <mutex>

#include <unicode/uchar.h>

#include "common/file_errors.h"
#include "common/site.h"
#include "common/stack_walk.h"
#include "common/trace.h"
#include "provider/errors.h"

namespace VirtualWareRaw {
namespace {

void ThrowPending(file_object& object) {
  if (object.Failed()) throw object.TakeError();
}

}  // namespace

bool ChainHolds(const Common::Error& error, std::uint32_t code) {
  for (Common::Error e = error; !e.IsEmpty(); e = e.Reason())
    if (e.Code() == code) return true;
  return false;
}

void VerifyFileObject(file_object& parent, file_object* object) {
  ThrowPending(parent);
  if (!object) throw Common::NotSupportedError(VR_SITE);
  ThrowPending(*object);
}

void VerifyFileObject(file_object& parent, const dir_item* object) {
  ThrowPending(parent);
  if (!object) throw Common::NotSupportedError(VR_SITE);
}

void SetAccessCredentialsHelper(rio_dir& folder, const std::u16string& path,
                                const Common::Credentials& credentials) {
  CredentialsCommand command{{'S', 'P', 'W', 'D'}, credentials.User.c_str(),
                             credentials.Password.c_str(), path.c_str()};
  folder.IOCTL(&command);
  const Common::Error error = folder.TakeError();
  if (error.IsEmpty() || ChainHolds(error, FileError::NotSupported)) return;
  // Not fatal here: the failure would show at the next file operation.
  Common::TraceErrorValue(3, Wrap(VR_SITE, kSetCredentialsFailed, {path}, error));
}

std::vector<std::u16string> GetVMDefaultFolders(rio_dir& root) {
  // One list for each answer of the pre-installation probe; a list once
  // non-empty stays.
  static std::mutex lock;
  static std::vector<std::u16string> lists[2];
  const int which = Common::IsMiniNT() ? 1 : 0;
  {
    std::lock_guard<std::mutex> guard(lock);
    if (!lists[which].empty()) return lists[which];
  }
  std::vector<std::u16string> list;
  try {
    if (which == 0) {
      std::unique_ptr<rio_dir> special = root.OpenSpecialFolder(kMachinesFolder);
      VerifyFileObject(root, special.get());
      Processor::AutoRef<dir_item> self = special->Self();
      VerifyFileObject(*special, self.Get());
      list.push_back(special->FullPath());
    } else {
      std::unique_ptr<dir_enumerator> entries = root.Enumerate();
      if (entries && !entries->Failed()) {
        do {
          if (entries->GetKind() != kFolderEntryKind) continue;
          std::unique_ptr<rio_dir> folder = root.OpenEntry(*entries);
          if (folder && !folder->Failed()) {
            list.push_back(folder->FullPath());
            break;
          }
          root.TakeError();
        } while (entries->Next());
      }
    }
  } catch (const Common::Error& e) {
    throw Wrap(VR_SITE, kStoragePathsFailed, {}, e);
  }
  std::lock_guard<std::mutex> guard(lock);
  if (!list.empty()) lists[which] = list;
  return list;
}

bool FileExists(rio_dir& folder, const std::u16string& name) {
  Processor::AutoRef<dir_item> item = folder.Find(name);
  const bool folderFailed = !folder.TakeError().IsEmpty();
  return item && !folderFailed;
}

bool PathExists(rio_dir& root, const std::u16string& path) {
  try {
    const char16_t* last = path.c_str();
    std::unique_ptr<rio_dir> folder = root.OpenParentFolder(last);
    if (!folder) {
      root.TakeError();
      return false;
    }
    if (folder->Failed()) return false;
    return FileExists(*folder, last);
  } catch (const Common::Error&) {
    return false;
  }
}

bool IsFolderEmpty(rio_dir& folder) {
  std::unique_ptr<dir_enumerator> entries = folder.Enumerate();
  return !entries || entries->Status.Code() == FileError::EndOfFile;
}

Common::Error ReplaceFile(rio_dir& folder, const std::u16string& from, const std::u16string& to) {
  ReplaceCommand command{{'R', 'P', 'L', 'C'}, from.c_str(), to.c_str()};
  folder.IOCTL(&command);
  Common::Error error = folder.TakeError();
  if (!ChainHolds(error, FileError::NotSupported)) return error;
  folder.DeleteFile(to);
  error = folder.TakeError();
  if (!error.IsEmpty() && !ChainHolds(error, FileError::NotFound)) return error;
  folder.Rename(from, to);
  return folder.TakeError();
}

Common::Error CreateFolderChain(rio_dir& folder) {
  if (folder.Self()) return Common::NoError;
  std::unique_ptr<rio_dir> parent = folder.OpenFolder(u"..");
  folder.CreateFolder(u".");
  Common::Error error = folder.TakeError();
  if (error.IsEmpty() || ChainHolds(error, FileError::Exists)) return Common::NoError;

  // Walk up to the first folder that exists or can be made, remembering the
  // ones below it, then make those from the top down.
  std::vector<std::unique_ptr<rio_dir>> missing;
  rio_dir* below = &folder;
  while (parent && !parent->Failed() && !parent->IsSameFolder(*below) &&
         !parent->FullPath().empty()) {
    parent->CreateFolder(u".");
    Common::Error e = parent->TakeError();
    if (e.IsEmpty() || ChainHolds(e, FileError::Exists)) break;
    std::unique_ptr<rio_dir> next = parent->OpenFolder(u"..");
    missing.push_back(std::move(parent));
    below = missing.back().get();
    parent = std::move(next);
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    (*it)->CreateFolder(u".");
    Common::Error e = (*it)->TakeError();
    if (!e.IsEmpty() && !ChainHolds(e, FileError::Exists)) return e;
  }
  folder.CreateFolder(u".");
  error = folder.TakeError();
  return error.IsEmpty() || ChainHolds(error, FileError::Exists) ? Common::NoError : error;
}

std::u16string AddSuffix(const std::u16string& text, const std::u16string& suffix) {
  if (text.size() > suffix.size()) {
    const Processor::String tail(text.substr(text.size() - suffix.size()));
    if (tail.caseCompare(Processor::String(suffix), U_FOLD_CASE_DEFAULT) == 0) return text;
  }
  return text + suffix;
}

std::u16string GetExtension(const std::u16string& text) {
  const std::size_t dot = text.rfind(u'.');
  return dot == std::u16string::npos ? std::u16string() : text.substr(dot + 1);
}

std::u16string RemoveTrailingSeparators(std::u16string path, char16_t separator) {
  while (!path.empty() && path.back() == separator) path.pop_back();
  return path;
}

}  // namespace VirtualWareRaw
