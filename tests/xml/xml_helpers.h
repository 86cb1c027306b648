// Sources and sinks for the XML tests: documents in memory, a source that
// trickles its bytes, a sink that counts flushes.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "common/file_errors.h"
#include "common/memory_file.h"
#include "common/site.h"
#include "xml/reader.h"
#include "xml/tag.h"
#include "xml/writer.h"

namespace Xml::testing {

struct Parsed {
  std::unique_ptr<Tag> Root;  // null when the parse failed
  std::uint32_t Line = 0;
  std::uint32_t Column = 0;
};

inline Parsed ParseBytes(std::string_view bytes) {
  auto file = Common::MemoryFile::Create();
  file->Write(bytes.data(), bytes.size());
  file->Seek(0);
  Parsed parsed;
  if (!ParseDocument(parsed.Root, *file, parsed.Line, parsed.Column)) parsed.Root.reset();
  return parsed;
}

inline std::unique_ptr<Tag> Parse(std::string_view bytes) { return ParseBytes(bytes).Root; }

inline std::string Write(const Tag* root, std::uint32_t flags) {
  auto file = Common::MemoryFile::Create();
  WriteDocument(root, *file, flags);
  const char* data = file->GetData();
  return data ? std::string(data, file->Size()) : std::string();
}

// The element alone: no declaration, no final line break.
inline std::string WriteElement(const Tag& root, bool indent = false) {
  std::string all = Write(&root, kNoDeclaration | (indent ? kIndent : 0));
  if (all.ends_with("\r\n")) all.resize(all.size() - 2);
  return all;
}

// Hands out at most `chunk` bytes a read and notes what each read asked
// for; can store an error in its Status once `failAfter` bytes are out.
class TrickleFile : public i_file {
 public:
  TrickleFile(std::string data, std::size_t chunk, std::size_t failAfter = std::string::npos)
      : data_(std::move(data)), chunk_(chunk), failAfter_(failAfter) {}

  std::size_t Read(void* buffer, std::size_t size) override {
    Requests.push_back(size);
    if (Failed()) return 0;
    const std::size_t n = std::min({size, chunk_, data_.size() - position_});
    std::memcpy(buffer, data_.data() + position_, n);
    position_ += n;
    if (position_ >= failAfter_)
      Status = Common::FileErrorOf(VR_SITE, FileError::Read);
    return n;
  }

  std::vector<std::size_t> Requests;

 private:
  std::string data_;
  std::size_t position_ = 0;
  std::size_t chunk_;
  std::size_t failAfter_;
};

class CollectingFile : public o_file {
 public:
  std::size_t Write(const void* buffer, std::size_t size) override {
    Bytes.append(static_cast<const char*>(buffer), size);
    ++Writes;
    return size;
  }
  void Flush() override { ++Flushes; }

  std::string Bytes;
  int Writes = 0;
  int Flushes = 0;
};

// Two trees are the same document: names, attributes, texts, shape.
inline bool SameTree(const Tag& a, const Tag& b) {
  if (a.Name != b.Name || a.Attributes != b.Attributes || a.Text != b.Text ||
      a.Children.size() != b.Children.size())
    return false;
  for (std::size_t i = 0; i < a.Children.size(); ++i) {
    if (a.Children[i]->Parent != &a || b.Children[i]->Parent != &b) return false;
    if (!SameTree(*a.Children[i], *b.Children[i])) return false;
  }
  return true;
}

}  // namespace Xml::testing
