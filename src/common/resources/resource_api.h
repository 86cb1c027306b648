// ResourceApi: the archive of resources built into the module, and the
// language its texts are chosen in. Module-internal.
//
// The archive holds, per language code, "<code>/vellumrig.msg" and
// "<code>/resource.xml", and for all "default.vmc" and the list "locales".
// A name is looked up as "<language>/<name>" for each wanted language, then
// as "<name>". The wanted languages come from the environment: LANGUAGE (a
// list separated by ":"), then the first of LC_ALL, LC_MESSAGES and LANG;
// "de_DE.UTF-8" tries "de_DE", then "de". Only codes in "locales" count.
// Setting those variables at run time changes the language: the next check
// notices and tells every subscriber.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Common::Resources {

struct Module;
struct File;
using ModuleHandle = Module*;
using FileHandle = File*;
using LanguageCallback = void (*)();

class ResourceApi {
 public:
  // Opens the zip archive that is the file at `path`; null on failure. A
  // null path only prepares the library and gives null.
  static ModuleHandle OpenModule(const char* path);
  // Opens an archive held in memory, which must outlive the handle; `name`
  // stands for it in errors. Null on failure.
  static ModuleHandle OpenMemoryModule(const void* data, std::size_t size, const char* name);
  static void CloseModule(ModuleHandle module);

  // The whole file in a new buffer, or null.
  static std::unique_ptr<std::uint8_t[]> LoadFile(ModuleHandle module, const char* name,
                                                  void* reserved, std::size_t& size);
  static FileHandle OpenFile(ModuleHandle module, const char* name, void* reserved);
  static void CloseFile(FileHandle file);
  static bool ReadFile(FileHandle file, void* buffer, std::size_t size, std::size_t& read);
  static bool RewindFile(FileHandle file);
  static bool GetFileSize(FileHandle file, std::uint64_t& size);
  // The file's stored failure as a flat error stream, or null.
  static std::unique_ptr<std::uint8_t[]> GetFileError(FileHandle file, std::size_t& size);

  // Calls the callback at once, and again at each language change.
  static void SubscribeLanguageEvents(LanguageCallback callback);
  static void UnsubscribeLanguageEvents(LanguageCallback callback);
  // Reads the environment again; a changed language fires the events.
  static void CheckLanguage();
  // The wanted language codes, most wanted first, as the environment says now.
  static std::vector<std::string> WantedLanguages();
};

}  // namespace Common::Resources
