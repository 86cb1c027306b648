#include "common/resources/resource_module.h"

#include <dlfcn.h>

#include <atomic>
#include <mutex>

#include "common/file_errors.h"
#include "common/flat_error.h"
#include "common/resources/embedded_archive.h"
#include "common/resources/zip_library.h"
#include "common/site.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

using Resources::FileHandle;
using Resources::ModuleHandle;
using Resources::ResourceApi;

std::atomic<ModuleHandle> g_module{nullptr};

std::string& ArchiveFileOverride() {
  static auto* path = new std::string;
  return *path;
}

ModuleHandle OpenOwnArchive() {
  if (!ArchiveFileOverride().empty()) return ResourceApi::OpenModule(ArchiveFileOverride().c_str());
  const Resources::ArchiveBytes archive = Resources::EmbeddedArchive();
  // The file that holds the archive names it in errors; only a label.
  Dl_info info{};
  const char* name = dladdr(archive.Data, &info) && info.dli_fname ? info.dli_fname : "vellumrig";
  return ResourceApi::OpenMemoryModule(archive.Data, archive.Size, name);
}

// An si_file over a file of the archive. Each operation does nothing once
// the file holds an error; a failure takes the reader's own error when it
// has one, and the prepared one otherwise.
class SIFileWrapper final : public si_file {
 public:
  explicit SIFileWrapper(FileHandle file) : file_(file) {}
  ~SIFileWrapper() override { ResourceApi::CloseFile(file_); }

  std::size_t Read(void* buffer, std::size_t size) override {
    if (Failed()) return 0;
    std::size_t read = 0;
    if (!ResourceApi::ReadFile(file_, buffer, size, read))
      Record(FileErrorOf(SiteOf("SIFileWrapper::Read", __LINE__), FileError::Read));
    return read;
  }
  void Rewind() override {
    if (Failed()) return;
    if (!ResourceApi::RewindFile(file_))
      Record(FileErrorOf(SiteOf("SIFileWrapper::Rewind", __LINE__), FileError::Seek));
  }
  std::uint64_t Size() override {
    if (Failed()) return 0;
    std::uint64_t size = 0;
    if (!ResourceApi::GetFileSize(file_, size))
      Record(FileErrorOf(SiteOf("SIFileWrapper::Size", __LINE__), FileError::Read));
    return size;
  }

 private:
  static ErrorSite SiteOf(const char* function, std::uint32_t line) {
    return ErrorSite{detail::FileConstant(__FILE__) + line, __FILE__, function, line};
  }
  void Record(const Error& prepared) {
    std::size_t size = 0;
    auto stream = ResourceApi::GetFileError(file_, size);
    Error exact = stream ? ParseFlatError(stream.get(), size) : Error();
    Status = exact ? exact : prepared;
  }

  FileHandle file_;
};

}  // namespace

void SetResourceArchiveFile(const std::string& path) { ArchiveFileOverride() = path; }

ModuleHandle GetResourceModule() {
  if (ModuleHandle module = g_module.load(std::memory_order_acquire)) return module;
  // Once per process: the library's own set-up.
  static std::once_flag prepared;
  std::call_once(prepared, [] { ResourceApi::OpenModule(nullptr); });
  if (ModuleHandle module = g_module.load(std::memory_order_acquire)) return module;
  ModuleHandle mine = OpenOwnArchive();
  if (!mine) return nullptr;
  ModuleHandle expected = nullptr;
  if (!g_module.compare_exchange_strong(expected, mine, std::memory_order_acq_rel)) {
    ResourceApi::CloseModule(mine);  // another thread was first
    return expected;
  }
  return mine;
}

Error ResourcesUnavailable() {
  if (GetResourceModule()) return Error();
  return Resources::ZipLibraryFailure();
}

void CloseResourceModule() {
  ResourceApi::CloseModule(g_module.exchange(nullptr, std::memory_order_acq_rel));
}

std::unique_ptr<si_file> OpenResourceFile(const std::u16string& name) {
  const std::string narrow = ToUtf8(name);
  FileHandle file = ResourceApi::OpenFile(GetResourceModule(), narrow.c_str(), nullptr);
  if (!file) return nullptr;
  return std::make_unique<SIFileWrapper>(file);
}

std::unique_ptr<std::uint8_t[]> LoadResourceFile(const std::u16string& name, std::size_t& size) {
  const std::string narrow = ToUtf8(name);
  return ResourceApi::LoadFile(GetResourceModule(), narrow.c_str(), nullptr, size);
}

}  // namespace Common
