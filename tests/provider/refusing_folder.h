// A folder that forwards to a real one, except that it refuses to open
// other folders: what a folder object over an unreachable share does.
#pragma once

#include "common/file_errors.h"
#include "common/site.h"
#include "vellumrig/folder.h"

namespace ProviderTest {

class RefusingFolder final : public rio_dir {
 public:
  explicit RefusingFolder(std::unique_ptr<rio_dir> inner) : inner_(std::move(inner)) {}

  std::unique_ptr<rio_dir> OpenFolder(const std::u16string&) override { return Refuse(); }
  std::unique_ptr<rio_dir> OpenParentFolder(const char16_t*&) override { return Refuse(); }

  std::unique_ptr<i_file> OpenFile(const std::u16string& n, std::uint32_t m) override { return inner_->OpenFile(n, m); }
  std::unique_ptr<rio_dir> OpenEntry(const dir_enumerator& e) override { return inner_->OpenEntry(e); }
  std::unique_ptr<rio_dir> OpenSpecialFolder(std::uint32_t k) override { return inner_->OpenSpecialFolder(k); }
  Processor::AutoRef<dir_item> Find(const std::u16string& n) override { return inner_->Find(n); }
  std::unique_ptr<dir_enumerator> Enumerate() override { return inner_->Enumerate(); }
  Processor::AutoRef<dir_item> Self() override { return inner_->Self(); }
  std::u16string FullPath() override { return inner_->FullPath(); }
  int IsSameFolder(rio_dir& other) override { return inner_->IsSameFolder(other); }
  bool IsSeparator(char16_t c) const override { return inner_->IsSeparator(c); }
  char16_t Separator() const override { return inner_->Separator(); }
  std::unique_ptr<rio_file> CreateFile(const std::u16string& n, std::uint32_t m, std::uint32_t f) override {
    return inner_->CreateFile(n, m, f);
  }
  void DeleteFile(const std::u16string& n) override { inner_->DeleteFile(n); }
  void Rename(const std::u16string& a, const std::u16string& b) override { inner_->Rename(a, b); }
  void CreateFolder(const std::u16string& n) override { inner_->CreateFolder(n); }
  void DeleteFolder(const std::u16string& n) override { inner_->DeleteFolder(n); }

 private:
  std::unique_ptr<rio_dir> Refuse() {
    Fail(Common::FileErrorOf(VR_SITE, FileError::NetworkDisconnected));
    return nullptr;
  }
  std::unique_ptr<rio_dir> inner_;
};

}  // namespace ProviderTest
