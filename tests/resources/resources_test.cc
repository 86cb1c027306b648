// The resources built into the module's objects, the language choice and
// the translated catalogue. Before the first message the program is pointed
// at a copy of that archive with broken catalogues added.
#include <zip.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "common/flat_error.h"
#include "common/message_table.h"
#include "common/resources/embedded_archive.h"
#include "common/resources/resource_api.h"
#include "common/resources/resource_module.h"
#include "common/resources/zip_library.h"
#include "host/temp_dir.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

using Resources::ModuleHandle;
using Resources::ResourceApi;

// A zip archive written with libzip; `store` keeps entries uncompressed.
void WriteZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& files,
              bool store = false) {
  int error = 0;
  zip_t* z = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  ASSERT_NE(z, nullptr);
  for (const auto& [name, data] : files) {
    zip_source_t* s = zip_source_buffer(z, data.data(), data.size(), 0);
    const zip_int64_t index = zip_file_add(z, name.c_str(), s, ZIP_FL_OVERWRITE);
    ASSERT_GE(index, 0);
    if (store) zip_set_file_compression(z, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0);
  }
  ASSERT_EQ(zip_close(z), 0);
}

// The module's own archive, with two broken catalogues added: "xx" counts
// one entry too few, "yy" has a size word that is not its size.
std::string ArchiveWithBrokenCatalogues() {
  const Resources::ArchiveBytes own = Resources::EmbeddedArchive();
  ModuleHandle module = ResourceApi::OpenMemoryModule(own.Data, own.Size, "built in");
  EXPECT_NE(module, nullptr);
  std::vector<std::pair<std::string, std::string>> files;
  for (const char* name : {"default.vmc", "locales", "en/vellumrig.msg", "de/vellumrig.msg",
                           "en/resource.xml", "de/resource.xml"}) {
    std::size_t size = 0;
    auto data = ResourceApi::LoadFile(module, name, nullptr, size);
    EXPECT_NE(data, nullptr) << name;
    files.emplace_back(name, std::string(reinterpret_cast<char*>(data.get()), size));
  }
  ResourceApi::CloseModule(module);
  files[1].second += ",xx,yy";
  std::string wrongCount = files[2].second;
  wrongCount[4] = static_cast<char>(0xA1);  // 1697 entries
  files.emplace_back("xx/vellumrig.msg", wrongCount);
  files.emplace_back("yy/vellumrig.msg", files[2].second + "tail");
  const std::string path = ::testing::TempDir() + "resources-with-broken-catalogues.zip";
  WriteZip(path, files);
  return path;
}

class ResourcesTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) unsetenv(name);
    setenv("LANGUAGE", "en", 1);
    SetResourceArchiveFile(ArchiveWithBrokenCatalogues());
  }
  void TearDown() override {
    setenv("LANGUAGE", "en", 1);
    unsetenv("LC_ALL");
    ResourceApi::CheckLanguage();
  }
};

TEST_F(ResourcesTest, WantedLanguagesFollowTheEnvironment) {
  // LANGUAGE first; LC_ALL stands when it is unset.
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"pt_BR.UTF-8:de", {"pt_BR", "pt", "de"}}, {"de_AT.UTF-8@euro", {"de_AT", "de"}}, {"C", {"en"}}};
  for (const auto& [value, wanted] : cases) {
    setenv(wanted.size() == 3 ? "LANGUAGE" : "LC_ALL", value, 1);
    if (wanted.size() != 3) unsetenv("LANGUAGE");
    ResourceApi::CheckLanguage();
    EXPECT_EQ(ResourceApi::WantedLanguages(), wanted) << value;
  }
}

TEST_F(ResourcesTest, CatalogueFollowsTheLanguageAndOldTextsStayReadable) {
  errno = 1234;
  EXPECT_EQ(std::u16string(GetMessage(Msg::ResourceNameText)), u"VHDX files");
  EXPECT_EQ(errno, 1234);  // a caller may report a system failure afterwards

  setenv("LANGUAGE", "de", 1);
  const char16_t* german = GetMessage(Msg::ResourceNameText);
  EXPECT_EQ(std::u16string(german), u"VHDX-Dateien");
  EXPECT_EQ(MessageText(Msg::FileDiskFull), u"Auf dem Datenträger ist nicht genügend Speicherplatz verfügbar.");

  setenv("LANGUAGE", "en", 1);
  EXPECT_EQ(MessageText(Msg::ResourceNameText), u"VHDX files");
  EXPECT_EQ(std::u16string(german), u"VHDX-Dateien");  // the old catalogue is never freed

  // A catalogue of another version or size is refused, and English stands.
  for (const char* broken : {"xx", "yy"}) {
    setenv("LANGUAGE", "de", 1);
    EXPECT_EQ(MessageText(Msg::ResourceNameText), u"VHDX-Dateien");
    setenv("LANGUAGE", broken, 1);
    EXPECT_EQ(MessageText(Msg::ResourceNameText), u"VHDX files") << broken;
    EXPECT_EQ(ActiveMessageTable().Base, kEnglishMessageTable) << broken;
  }
}

// The archive here is a copy of the module's own: what it holds came from there.
TEST_F(ResourcesTest, ResourceFilesReadRewindAndReportTheirSize) {
  auto file = OpenResourceFile(u"default.vmc");
  ASSERT_NE(file, nullptr);
  const std::string expected = HostTest::ReadBytes(SOURCE_DIR "/resources/default.vmc");
  EXPECT_EQ(file->Size(), expected.size());
  std::string got(expected.size(), '\0');
  EXPECT_EQ(file->Read(got.data(), got.size()), expected.size());
  EXPECT_EQ(got, expected);
  file->Rewind();
  EXPECT_EQ(file->Read(got.data(), 3), 3u);
  EXPECT_EQ(OpenResourceFile(u"missing.vmc"), nullptr);
  std::size_t size = 0;
  auto locales = LoadResourceFile(u"locales", size);
  ASSERT_NE(locales, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(locales.get()), size).substr(0, 9), "en,bn,bg,");
  EXPECT_EQ(ResourceApi::OpenModule("/nonexistent/module.so"), nullptr);
}

TEST_F(ResourcesTest, FileOpenedRightAfterALanguageChangeIsOfTheNewLanguage) {
  ResourceApi::CheckLanguage();
  setenv("LANGUAGE", "de", 1);
  auto file = OpenResourceFile(u"resource.xml");
  ASSERT_NE(file, nullptr);
  const std::string expected = HostTest::ReadBytes(SOURCE_DIR "/resources/de/resource.xml");
  std::string got(expected.size() + 16, '\0');
  got.resize(file->Read(got.data(), got.size()));
  EXPECT_EQ(got, expected);
}

TEST_F(ResourcesTest, ReadFailureOfAnEntryIsTheReadersOwnError) {
  const std::string path = ::testing::TempDir() + "damaged.zip";
  const std::string data(4096, 'v');
  WriteZip(path, {{"default.vmc", data}}, /*store=*/true);
  // Damage the stored bytes: the entry's checksum no longer matches.
  std::string bytes = HostTest::ReadBytes(path);
  const std::size_t at = bytes.find(data.substr(0, 64));
  ASSERT_NE(at, std::string::npos);
  bytes[at + 100] = 'X';
  HostTest::WriteBytes(path, bytes);

  ModuleHandle module = ResourceApi::OpenModule(path.c_str());
  ASSERT_NE(module, nullptr);
  Resources::FileHandle handle = ResourceApi::OpenFile(module, "default.vmc", nullptr);
  ASSERT_NE(handle, nullptr);
  std::string got(8192, '\0');
  std::size_t read = 0;
  EXPECT_FALSE(ResourceApi::ReadFile(handle, got.data(), got.size(), read));
  std::size_t size = 0;
  auto stream = ResourceApi::GetFileError(handle, size);
  ASSERT_NE(stream, nullptr);
  const Error error = ParseFlatError(stream.get(), size);
  EXPECT_EQ(error.Code(), 0x40001u);
  EXPECT_EQ(std::u16string(error.GetWideString("entry")), u"default.vmc");
  EXPECT_EQ(std::u16string(error.GetWideString("archive")), FromUtf8(path));
  EXPECT_STREQ(error.Site().Function, "ResourceApi::ReadFile");
  ResourceApi::CloseFile(handle);
  ResourceApi::CloseModule(module);
}

TEST_F(ResourcesTest, ThreadsOpeningTheModuleShareOneHandle) {
  ModuleHandle seen[4] = {};
  std::vector<std::thread> threads;
  for (auto& s : seen) threads.emplace_back([&s] { s = GetResourceModule(); });
  for (auto& t : threads) t.join();
  ASSERT_NE(seen[0], nullptr);
  for (auto s : seen) EXPECT_EQ(s, seen[0]);
}

TEST_F(ResourcesTest, MissingLibzipIsNamedWithTheDebianPackageThatBringsIt) {
  Resources::SetZipLibraryFile("libzip-not-installed.so.4");
  const Error error = Resources::ZipLibraryFailure();
  Resources::SetZipLibraryFile("libzip.so.4");
  EXPECT_EQ(error.Code(), 0x140FA1u) << ToUtf8(FullText(error));
  EXPECT_STREQ(error.GetNarrowString("path"), "libzip-not-installed.so.4");
  EXPECT_EQ(error.Reason().GetText(),
            u"The library libzip cannot be loaded. It is installed with the package 'libzip4'.");
  EXPECT_EQ(error.Reason().Reason().Code(), kWindowsErrorCode);  // the system's own word stays
}

// A translation that lacks an entry would show an empty text where English
// has one: the build refuses it and names the entry.
TEST(MessageSourceTest, TranslationLackingAnEntryIsRefused) {
  HostTest::TempDir dir;
  HostTest::WriteBytes(dir.Join("en.txt"), "1 First One\n2 Second Two\n");
  HostTest::WriteBytes(dir.Join("de.txt"), "1 First Eins\n");
  const std::string command = std::string(MSGTABLE_PATH) + " " + dir.Join("de.txt") + " --names-from " +
                              dir.Join("en.txt") + " --binary " + dir.Join("de.msg") + " 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buffer[256];
  while (std::size_t n = fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  EXPECT_NE(pclose(pipe), 0) << output;
  EXPECT_NE(output.find("entry 2 Second"), std::string::npos) << output;
}

}  // namespace
}  // namespace Common
