#include "provider/configuration.h"

#include <vector>

#include "common/assert.h"
#include "common/site.h"
#include "provider/errors.h"
#include "provider/xml_helpers.h"
#include "vellumrig/error_text.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace VirtualWareRaw {
namespace {

// Cuts at each "." as strcspn would: a trailing "." gives no further part,
// and two dots in a row give an empty part that no tag matches.
std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> parts;
  std::size_t at = 0;
  while (at < path.size()) {
    const std::size_t dot = std::min(path.find('.', at), path.size());
    parts.push_back(path.substr(at, dot - at));
    at = dot + 1;
  }
  return parts;
}

std::u16string Wide(const std::string& text) { return Common::FromUtf8(text); }

// Counts the removals in one document. A view's remembered tag may be one
// that another view removed; it counts only while no tag left the tree.
using Generation = std::shared_ptr<std::uint64_t>;

class ConfigurationImpl : public virtual Configuration {
 public:
  ConfigurationImpl(Xml::Tag* root, Generation generation)
      : root_(root), generation_(std::move(generation)) {}

  void AppendChild(std::unique_ptr<Configuration> child) override {
    auto* impl = dynamic_cast<ConfigurationImpl*>(child.get());
    if (!VR_ASSERT(impl && RootTag())) return;
    if (std::unique_ptr<Xml::Tag> tag = impl->TakeTag()) {
      Xml::Tag* parent = RootTag();
      parent->InsertChild(parent->Text.size(), std::move(tag));
    }
  }

  std::unique_ptr<Configuration> OpenChild(const std::string& path, const std::string& attribute,
                                           const std::u16string& value, bool create) override {
    Xml::Tag* tag = create ? CreateTag(path, attribute, value) : OpenTag(path, attribute, value);
    return tag ? std::make_unique<ConfigurationImpl>(tag, generation_) : nullptr;
  }

  std::unique_ptr<Configuration> OpenChildByIndex(const std::string& path,
                                                  std::uint32_t index) override {
    Xml::Tag* tag = OpenTag(path, {}, {});
    if (!tag || !tag->Parent) return nullptr;
    std::uint32_t seen = 0;
    for (const auto& sibling : tag->Parent->Children) {
      if (sibling->Name != tag->Name) continue;
      if (seen++ == index) return std::make_unique<ConfigurationImpl>(sibling.get(), generation_);
    }
    return nullptr;
  }

  void SetValue(const std::string& path, const std::u16string& value) override {
    if (Xml::Tag* tag = CreateTag(path, {}, {})) SetText(tag, value);
  }
  void SetValue(const std::u16string& value) override {
    if (VR_ASSERT(RootTag())) SetText(RootTag(), value);
  }
  void SetAttribute(const std::string& path, const std::string& name,
                    const std::u16string& value) override {
    if (Xml::Tag* tag = CreateTag(path, {}, {})) tag->SetAttribute(name, value);
  }
  void SetAttribute(const std::string& name, const std::u16string& value) override {
    if (VR_ASSERT(RootTag())) RootTag()->SetAttribute(name, value);
  }

  bool GetValue(const std::string& path, std::u16string& value) override {
    const Xml::Tag* tag = OpenTag(path, {}, {});
    if (!tag || tag->Text.empty()) return false;
    value = tag->Text[0];
    return true;
  }

  bool GetAttribute(const std::string& path, const std::string& name,
                    std::u16string& value) override {
    const Xml::Tag* tag = OpenTag(path, {}, {});
    if (!tag) return false;
    const auto it = tag->Attributes.find(name);
    if (it == tag->Attributes.end()) return false;
    value = it->second;
    return true;
  }

  void RemoveValue(const std::string&) override {
    throw Common::Error(VR_SITE, kParseConfigFailed.Code, "RemoveValue Not supported yet.");
  }

  void Remove() override {
    Xml::Tag* tag = RootTag();
    if (!tag) return;
    if (!VR_ASSERT(tag->Parent)) return;
    ++*generation_;
    tag->Parent->RemoveChild(tag);  // the returned owner frees the tag
    root_ = nullptr;
  }

  bool IsRoot() const override { return false; }

  void CreateRoot(const std::string&) override {
    throw Common::Error(VR_SITE, kParseConfigFailed.Code, "Unable to create root in child element.");
  }

 protected:
  virtual Xml::Tag* RootTag() const { return root_; }
  // A view lends its tag out of its tree; the parser gives up its root.
  virtual std::unique_ptr<Xml::Tag> TakeTag() {
    Xml::Tag* tag = RootTag();
    if (!tag || !tag->Parent) return nullptr;
    root_ = nullptr;
    ++*generation_;
    return tag->Parent->RemoveChild(tag);
  }
  void Forget() { ++*generation_; }

 private:
  static void SetText(Xml::Tag* tag, const std::u16string& value) {
    if (tag->Text.empty()) tag->Text.emplace_back();
    tag->Text[0] = value;
  }

  Xml::Tag* OpenTag(const std::string& path, const std::string& attribute,
                    const std::u16string& value) {
    return Walk(path, attribute, value, false);
  }
  Xml::Tag* CreateTag(const std::string& path, const std::string& attribute,
                      const std::u16string& value) {
    return Walk(path, attribute, value, true);
  }

  Xml::Tag* Walk(const std::string& path, const std::string& attribute,
                 const std::u16string& value, bool create) {
    if (attribute.empty() && cachedTag_ && path == cachedPath_ && cachedGeneration_ == *generation_)
      return cachedTag_;
    std::vector<std::string> parts = SplitPath(path);
    if (parts.empty()) throw Common::MessageError(VR_SITE, kInvalidConfigPath, {Wide(path)});
    if (!create && !RootTag()) return nullptr;
    std::size_t first = 0;
    if (IsRoot()) {
      if (!RootTag()) CreateRoot(parts[0]);
      if (parts[0] != RootTag()->Name) {
        if (!create) return nullptr;
        throw Common::MessageError(VR_SITE, kConfigRootMismatch,
                                   {Wide(parts[0]), Wide(RootTag()->Name)});
      }
      first = 1;
    }
    Xml::Tag* tag = RootTag();
    if (create && !VR_ASSERT(tag)) return nullptr;
    if (first == parts.size()) {
      // The path names the root itself.
      Remember(path, tag);
      return tag;
    }
    for (std::size_t i = first; i + 1 < parts.size(); ++i) {
      Xml::Tag* next = tag->FindChild(parts[i]);
      if (!next) {
        if (!create) return nullptr;
        next = tag->InsertChild(tag->Text.size(), std::make_unique<Xml::Tag>(parts[i]));
      }
      tag = next;
    }
    const std::string& last = parts.back();
    Xml::Tag* found = attribute.empty() ? tag->FindChild(last) : tag->FindChild(last, attribute, value);
    if (!found) {
      if (!create) return nullptr;
      auto made = std::make_unique<Xml::Tag>(last);
      if (!attribute.empty()) made->SetAttribute(attribute, value);
      found = tag->InsertChild(tag->Text.size(), std::move(made));
    }
    Remember(path, found);
    return found;
  }

  void Remember(const std::string& path, Xml::Tag* tag) {
    cachedPath_ = path;
    cachedTag_ = tag;
    cachedGeneration_ = *generation_;
  }

  Xml::Tag* root_;
  Generation generation_;
  std::string cachedPath_;
  Xml::Tag* cachedTag_ = nullptr;
  std::uint64_t cachedGeneration_ = 0;
};

class ConfigurationParserImpl final : public ConfigurationParser, public ConfigurationImpl {
 public:
  explicit ConfigurationParserImpl(i_file* source)
      : ConfigurationImpl(nullptr, std::make_shared<std::uint64_t>(0)) {
    if (!source) return;
    std::uint32_t line = 0, column = 0;
    if (!Xml::ParseDocument(document_, *source, line, column)) {
      Common::Error error = Common::MessageError(VR_SITE, kParseConfigFailed);
      error.AddReason(SyntaxError(VR_SITE, line, column));
      throw error;
    }
  }

  bool IsRoot() const override { return true; }

  void CreateRoot(const std::string& name) override {
    VR_ASSERT(!name.empty());
    VR_ASSERT(document_ == 0);
    document_ = std::make_unique<Xml::Tag>(name);
    Forget();
  }

  bool Save(o_file& stream, bool byteOrderMark) override {
    Xml::WriteDocument(document_.get(), stream, byteOrderMark ? Xml::kByteOrderMark : 0);
    return !stream.Failed();
  }

 protected:
  Xml::Tag* RootTag() const override { return document_.get(); }
  std::unique_ptr<Xml::Tag> TakeTag() override {
    Forget();
    return std::move(document_);
  }

 private:
  std::unique_ptr<Xml::Tag> document_;
};

}  // namespace

std::unique_ptr<ConfigurationParser> MakeConfigurationParser(i_file* source) {
  return std::make_unique<ConfigurationParserImpl>(source);
}

void SetStringValue(Configuration* parser, const std::string& path, const std::u16string& value) {
  if (!VR_ASSERT(parser)) return;
  parser->SetAttribute(path, "type", u"string");
  parser->SetValue(path, value);
}

void SetIntegerValue(Configuration* parser, const std::string& path, std::uint32_t value) {
  if (!VR_ASSERT(parser)) return;
  parser->SetAttribute(path, "type", u"integer");
  parser->SetValue(path, Common::FromUtf8(std::to_string(value)));
}

}  // namespace VirtualWareRaw
