#include "common/resources/resource_api.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>

#include "common/flat_error.h"
#include "common/resources/zip_library.h"
#include "common/site.h"
#include "vellumrig/file.h"

namespace Common::Resources {

struct Module {
  std::string path;
  zip_t* archive = nullptr;
  std::mutex lock;  // libzip handles are not shared between threads
  std::set<std::string> locales;
};

struct File {
  Module* module;
  std::string entry;
  zip_file_t* handle = nullptr;
  std::vector<FlatRecord> failure;  // the stored failure, empty while healthy
};

namespace {

struct LanguageState {
  std::mutex lock;
  std::string environment;  // what the variables said at the last check
  std::vector<std::string> wanted;
  std::vector<LanguageCallback> subscribers;
  bool read = false;
};

LanguageState& Languages() {
  static auto* state = new LanguageState;  // used until process end
  return *state;
}

std::string EnvironmentSignature() {
  std::string s;
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(name);
    s += v ? v : "";
    s += '\n';
  }
  return s;
}

void AddLanguage(std::vector<std::string>& out, std::string code) {
  code = code.substr(0, code.find_first_of(".@"));
  if (code.empty()) return;
  if (code == "C" || code == "POSIX") code = "en";
  const auto add = [&out](const std::string& c) {
    if (std::find(out.begin(), out.end(), c) == out.end()) out.push_back(c);
  };
  add(code);
  if (const auto bar = code.find('_'); bar != std::string::npos) add(code.substr(0, bar));
}

std::vector<std::string> ReadWanted() {
  std::vector<std::string> wanted;
  if (const char* list = std::getenv("LANGUAGE")) {
    std::string all(list);
    for (std::size_t at = 0; at <= all.size();) {
      const std::size_t colon = std::min(all.find(':', at), all.size());
      AddLanguage(wanted, all.substr(at, colon - at));
      at = colon + 1;
    }
  }
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* v = std::getenv(name);
    if (v && *v) {
      AddLanguage(wanted, v);
      break;
    }
  }
  return wanted;
}

// The candidates for a name in the archive, most wanted first. Asks the
// environment, which may tell subscribers of a change, so it runs outside
// the module's lock: they read the archive again.
std::vector<std::string> Candidates(const Module& module, const char* name) {
  std::vector<std::string> out;
  if (!module.locales.empty())
    for (const auto& code : ResourceApi::WantedLanguages())
      if (module.locales.count(code)) out.push_back(code + "/" + name);
  out.emplace_back(name);
  return out;
}

// The first candidate entry that exists, with its size; empty when none.
std::string Locate(Module& module, const std::vector<std::string>& candidates, std::uint64_t& size) {
  const ZipLibrary& zip = Zip();
  for (const auto& entry : candidates) {
    zip_stat_t st;
    zip.stat_init(&st);
    if (zip.stat(module.archive, entry.c_str(), 0, &st) == 0 && (st.valid & ZIP_STAT_SIZE)) {
      size = st.size;
      return entry;
    }
  }
  return {};
}

void RecordFailure(File& file, std::uint32_t code, const char* function, const std::string& why) {
  FlatRecord r;
  r.Code = code;
  r.SiteHash = detail::FileConstant(__FILE__) + __LINE__;
  r.Text = why;
  r.Fields = {{"$file", 'A', __FILE__, 0},
              {"$func", 'A', function, 0},
              {"$line", 'N', {}, static_cast<std::uint64_t>(__LINE__)},
              {"archive", 'W', file.module->path, 0},
              {"entry", 'W', file.entry, 0}};
  file.failure = {r};
}

}  // namespace

namespace {

// Takes the source over in every case; null when it is no readable archive.
ModuleHandle OpenFromSource(const ZipLibrary& zip, zip_source_t* source, zip_error_t& error,
                            const char* name) {
  zip_t* archive = source ? zip.open_from_source(source, ZIP_RDONLY, &error) : nullptr;
  if (source && !archive) zip.source_free(source);
  zip.error_fini(&error);
  if (!archive) return nullptr;
  auto module = std::make_unique<Module>();
  module->path = name;
  module->archive = archive;
  std::size_t size = 0;
  if (auto list = ResourceApi::LoadFile(module.get(), "locales", nullptr, size)) {
    std::string text(reinterpret_cast<const char*>(list.get()), size);
    for (std::size_t at = 0; at <= text.size();) {
      const std::size_t comma = std::min(text.find(',', at), text.size());
      std::string code = text.substr(at, comma - at);
      code.erase(std::remove_if(code.begin(), code.end(), [](char c) { return std::isspace(static_cast<unsigned char>(c)); }), code.end());
      if (!code.empty()) module->locales.insert(code);
      at = comma + 1;
    }
  }
  return module.release();
}

}  // namespace

ModuleHandle ResourceApi::OpenModule(const char* path) {
  try {
    const ZipLibrary& zip = Zip();
    if (!path) return nullptr;
    zip_error_t error;
    zip.error_init(&error);
    return OpenFromSource(zip, zip.source_file_create(path, 0, -1, &error), error, path);
  } catch (const Common::Error&) {
    // Without libzip there are no resources: English stands.
    return nullptr;
  }
}

ModuleHandle ResourceApi::OpenMemoryModule(const void* data, std::size_t size, const char* name) {
  try {
    const ZipLibrary& zip = Zip();
    zip_error_t error;
    zip.error_init(&error);
    // freep 0: the bytes are the module's own and are never freed.
    return OpenFromSource(zip, zip.source_buffer_create(data, size, 0, &error), error, name);
  } catch (const Common::Error&) {
    return nullptr;
  }
}

void ResourceApi::CloseModule(ModuleHandle module) {
  if (!module) return;
  Zip().discard(module->archive);
  delete module;
}

std::unique_ptr<std::uint8_t[]> ResourceApi::LoadFile(ModuleHandle module, const char* name, void*,
                                                      std::size_t& size) {
  size = 0;
  FileHandle file = OpenFile(module, name, nullptr);
  if (!file) return nullptr;
  std::uint64_t total = 0;
  std::unique_ptr<std::uint8_t[]> data;
  std::size_t read = 0;
  if (GetFileSize(file, total) && total < (std::uint64_t{1} << 31)) {
    data.reset(new (std::nothrow) std::uint8_t[total ? total : 1]);
    if (data && (!ReadFile(file, data.get(), total, read) || read != total)) data.reset();
  }
  CloseFile(file);
  if (data) size = static_cast<std::size_t>(total);
  return data;
}

FileHandle ResourceApi::OpenFile(ModuleHandle module, const char* name, void*) {
  if (!module || !name) return nullptr;
  try {
    const std::vector<std::string> candidates = Candidates(*module, name);
    std::lock_guard<std::mutex> guard(module->lock);
    std::uint64_t size;
    const std::string entry = Locate(*module, candidates, size);
    if (entry.empty()) return nullptr;
    zip_file_t* handle = Zip().fopen(module->archive, entry.c_str(), 0);
    if (!handle) return nullptr;
    return new File{module, entry, handle, {}};
  } catch (const Common::Error&) {
    return nullptr;
  }
}

void ResourceApi::CloseFile(FileHandle file) {
  if (!file) return;
  if (file->handle) {
    std::lock_guard<std::mutex> guard(file->module->lock);
    Zip().fclose(file->handle);
  }
  delete file;
}

bool ResourceApi::ReadFile(FileHandle file, void* buffer, std::size_t size, std::size_t& read) {
  read = 0;
  if (!file || !file->handle) return false;
  std::lock_guard<std::mutex> guard(file->module->lock);
  const ZipLibrary& zip = Zip();
  auto* out = static_cast<std::uint8_t*>(buffer);
  while (read < size) {
    const zip_int64_t n = zip.fread(file->handle, out + read, size - read);
    if (n < 0) {
      RecordFailure(*file, FileError::Read, "ResourceApi::ReadFile", zip.file_strerror(file->handle));
      return false;
    }
    if (n == 0) break;
    read += static_cast<std::size_t>(n);
  }
  return true;
}

bool ResourceApi::RewindFile(FileHandle file) {
  if (!file) return false;
  std::lock_guard<std::mutex> guard(file->module->lock);
  const ZipLibrary& zip = Zip();
  // Compressed entries cannot seek: start the entry again.
  if (file->handle) zip.fclose(file->handle);
  file->handle = zip.fopen(file->module->archive, file->entry.c_str(), 0);
  if (!file->handle) {
    RecordFailure(*file, FileError::Seek, "ResourceApi::RewindFile", "the entry cannot be reopened");
    return false;
  }
  return true;
}

bool ResourceApi::GetFileSize(FileHandle file, std::uint64_t& size) {
  if (!file) return false;
  std::lock_guard<std::mutex> guard(file->module->lock);
  const ZipLibrary& zip = Zip();
  zip_stat_t st;
  zip.stat_init(&st);
  if (zip.stat(file->module->archive, file->entry.c_str(), 0, &st) != 0 || !(st.valid & ZIP_STAT_SIZE)) {
    RecordFailure(*file, FileError::Read, "ResourceApi::GetFileSize", "the entry has no size");
    return false;
  }
  size = st.size;
  return true;
}

std::unique_ptr<std::uint8_t[]> ResourceApi::GetFileError(FileHandle file, std::size_t& size) {
  size = 0;
  if (!file || file->failure.empty()) return nullptr;
  const std::vector<std::uint8_t> stream = WriteFlatError(file->failure);
  auto copy = std::make_unique<std::uint8_t[]>(stream.size());
  std::memcpy(copy.get(), stream.data(), stream.size());
  size = stream.size();
  return copy;
}

void ResourceApi::SubscribeLanguageEvents(LanguageCallback callback) {
  {
    LanguageState& state = Languages();
    std::lock_guard<std::mutex> guard(state.lock);
    state.subscribers.push_back(callback);
  }
  callback();
}

void ResourceApi::UnsubscribeLanguageEvents(LanguageCallback callback) {
  LanguageState& state = Languages();
  std::lock_guard<std::mutex> guard(state.lock);
  std::erase(state.subscribers, callback);
}

void ResourceApi::CheckLanguage() {
  LanguageState& state = Languages();
  std::vector<LanguageCallback> notify;
  {
    std::lock_guard<std::mutex> guard(state.lock);
    std::string signature = EnvironmentSignature();
    if (state.read && signature == state.environment) return;
    const bool changed = state.read;
    state.environment = std::move(signature);
    state.wanted = ReadWanted();
    state.read = true;
    if (changed) notify = state.subscribers;
  }
  // Outside the lock: a callback reads files, which asks for the language.
  for (LanguageCallback callback : notify) callback();
}

std::vector<std::string> ResourceApi::WantedLanguages() {
  // The environment is read afresh each time: a file opened right after a
  // change comes from the new language, and the catalogue follows too.
  CheckLanguage();
  LanguageState& state = Languages();
  std::lock_guard<std::mutex> guard(state.lock);
  return state.wanted;
}

}  // namespace Common::Resources
