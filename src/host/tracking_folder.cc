#include "host/tracking_folder.h"

#include <algorithm>

#include "host/posix_path.h"
#include "vellumrig/error_text.h"

namespace Host::detail {
namespace {

// A file open for writing. The tracker learns of it at the first change,
// which is therefore held back until the tracker has it on record.
class TrackedFile final : public rio_file {
 public:
  TrackedFile(std::unique_ptr<rio_file> inner, std::shared_ptr<TrackerCore> core,
              std::unique_ptr<Writer> writer, bool decided)
      : inner_(std::move(inner)), core_(std::move(core)), writer_(std::move(writer)),
        decided_(decided), recording_(decided) {}

  ~TrackedFile() override {
    if (recording_) {
      // The file is still locked, so its identity taken now is ours alone.
      try {
        core_->Commit(*writer_, true);
      } catch (const Common::Error&) {
        // The mark stays and will read as a crash: full, never too little.
      }
      core_->Forget(*writer_);
    }
    inner_.reset();
  }

  std::size_t Read(void* buffer, std::size_t size) override {
    return Sync(inner_->Read(buffer, size));
  }
  std::int64_t Seek(std::int64_t position) override { return Sync(inner_->Seek(position)); }
  std::int64_t SeekCurrent(std::int64_t delta) override {
    return Sync(inner_->SeekCurrent(delta));
  }
  std::int64_t SeekEnd(std::int64_t delta) override { return Sync(inner_->SeekEnd(delta)); }
  std::uint64_t Size() override { return Sync(inner_->Size()); }
  void Unlock() override {
    inner_->Unlock();
    Sync(0);
  }
  void LockShared() override {
    inner_->LockShared();
    Sync(0);
  }
  void LockExclusive() override {
    inner_->LockExclusive();
    Sync(0);
  }
  void IOCTL(void* command) override {
    inner_->IOCTL(command);
    Sync(0);
  }

  std::size_t Write(const void* buffer, std::size_t size) override {
    if (Failed() || size == 0 || !Decide()) return 0;
    const std::int64_t at = inner_->SeekCurrent(0);
    const std::size_t done = inner_->Write(buffer, size);
    // The whole request: a failed write may have changed more than it says.
    if (recording_ && at >= 0) Record(static_cast<std::uint64_t>(at), size);
    return Sync(done);
  }

  void Truncate(std::uint64_t size) override {
    if (Failed() || !Decide()) return;
    const std::uint64_t old = inner_->Size();
    inner_->Truncate(size);
    if (recording_ && old != size) {
      try {
        core_->Record(*writer_, std::min(old, size), std::max(old, size));
      } catch (const Common::Error& error) {
        Fail(error);
      }
    }
    Sync(0);
  }

  void Flush() override {
    if (Failed()) return;
    inner_->Flush();
    if (Sync(0), Failed() || !recording_) return;
    try {
      core_->Commit(*writer_, false);
    } catch (const Common::Error& error) {
      Fail(error);
    }
  }

 private:
  template <class T>
  T Sync(T value) {
    if (inner_->Failed()) Fail(inner_->Status);
    return value;
  }

  void Record(std::uint64_t at, std::size_t size) {
    const std::uint64_t end = size > UINT64_MAX - at ? UINT64_MAX : at + size;
    try {
      core_->Record(*writer_, at, end);
    } catch (const Common::Error& error) {
      Fail(error);
    }
  }

  // False, with the error pending, when the tracker cannot put the file on
  // record: then nothing is written.
  bool Decide() {
    if (decided_) return true;
    try {
      recording_ = core_->BeginWriting(*writer_, false);
    } catch (const Common::Error& error) {
      Fail(error);
      return false;
    }
    decided_ = true;
    return true;
  }

  std::unique_ptr<rio_file> inner_;
  const std::shared_ptr<TrackerCore> core_;
  const std::unique_ptr<Writer> writer_;
  bool decided_;
  bool recording_;
};

class Folder final : public rio_dir {
 public:
  Folder(std::unique_ptr<rio_dir> inner, std::shared_ptr<TrackerCore> core)
      : inner_(std::move(inner)), core_(std::move(core)) {}

  std::unique_ptr<i_file> OpenFile(const std::u16string& name, std::uint32_t mode) override {
    std::unique_ptr<i_file> file = inner_->OpenFile(name, mode);
    Sync();
    if (!file || mode != kOpenReadWrite) return file;
    auto* writable = dynamic_cast<rio_file*>(file.get());
    if (!writable) return file;
    file.release();
    return std::make_unique<TrackedFile>(std::unique_ptr<rio_file>(writable), core_,
                                         std::make_unique<Writer>(PathOf(name)), false);
  }

  std::unique_ptr<rio_file> CreateFile(const std::u16string& name, std::uint32_t mode,
                                       std::uint32_t flags) override {
    // Creating empties what is there, so the mark comes first.
    auto writer = std::make_unique<Writer>(PathOf(name));
    bool recording;
    try {
      recording = core_->BeginWriting(*writer, true);
    } catch (const Common::Error& error) {
      Fail(error);
      return nullptr;
    }
    std::unique_ptr<rio_file> file = inner_->CreateFile(name, mode, flags);
    Sync();
    if (!file) {
      if (recording) {
        try {
          core_->Commit(*writer, true);
        } catch (const Common::Error&) {
          // Left marked: read as a crash later, which over-reports only.
        }
        core_->Forget(*writer);
      }
      return nullptr;
    }
    if (!recording) return file;
    return std::make_unique<TrackedFile>(std::move(file), core_, std::move(writer), true);
  }

  std::unique_ptr<rio_dir> OpenEntry(const dir_enumerator& entry) override {
    return Wrap(inner_->OpenEntry(entry));
  }
  std::unique_ptr<rio_dir> OpenFolder(const std::u16string& name) override {
    return Wrap(inner_->OpenFolder(name));
  }
  std::unique_ptr<rio_dir> OpenParentFolder(const char16_t*& path) override {
    return Wrap(inner_->OpenParentFolder(path));
  }
  std::unique_ptr<rio_dir> OpenSpecialFolder(std::uint32_t kind) override {
    return Wrap(inner_->OpenSpecialFolder(kind));
  }
  Processor::AutoRef<dir_item> Find(const std::u16string& name) override {
    auto item = inner_->Find(name);
    Sync();
    return item;
  }
  std::unique_ptr<dir_enumerator> Enumerate() override {
    auto list = inner_->Enumerate();
    Sync();
    return list;
  }
  Processor::AutoRef<dir_item> Self() override {
    auto item = inner_->Self();
    Sync();
    return item;
  }
  std::u16string FullPath() override { return inner_->FullPath(); }
  int IsSameFolder(rio_dir& other) override {
    auto* tracked = dynamic_cast<Folder*>(&other);
    return inner_->IsSameFolder(tracked ? *tracked->inner_ : other);
  }
  bool IsSeparator(char16_t c) const override { return inner_->IsSeparator(c); }
  char16_t Separator() const override { return inner_->Separator(); }
  void DeleteFile(const std::u16string& name) override {
    inner_->DeleteFile(name);
    Sync();
  }
  void Rename(const std::u16string& oldName, const std::u16string& newName) override {
    inner_->Rename(oldName, newName);
    Sync();
  }
  void CreateFolder(const std::u16string& name) override {
    inner_->CreateFolder(name);
    Sync();
  }
  void DeleteFolder(const std::u16string& name) override {
    inner_->DeleteFolder(name);
    Sync();
  }
  void IOCTL(void* command) override {
    inner_->IOCTL(command);
    Sync();
  }

 private:
  // A folder keeps working after a failure: the error moves up to us.
  void Sync() {
    if (inner_->Failed()) Fail(inner_->TakeError());
  }

  std::unique_ptr<rio_dir> Wrap(std::unique_ptr<rio_dir> folder) {
    Sync();
    if (!folder) return nullptr;
    return std::make_unique<Folder>(std::move(folder), core_);
  }

  std::string PathOf(const std::u16string& name) {
    std::string base = Common::ToUtf8(inner_->FullPath());
    if (base.size() > 1 && base.back() == '/') base.pop_back();
    return ResolvePath(base.empty() ? std::string("/") : base, name);
  }

  const std::unique_ptr<rio_dir> inner_;
  const std::shared_ptr<TrackerCore> core_;
};

}  // namespace

std::unique_ptr<rio_dir> TrackingFolder(std::unique_ptr<rio_dir> inner,
                                        std::shared_ptr<TrackerCore> core) {
  if (!inner) return nullptr;
  return std::make_unique<Folder>(std::move(inner), std::move(core));
}

}  // namespace Host::detail
