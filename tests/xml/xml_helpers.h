// Documents in memory, a source that trickles its bytes, a sink that counts
// flushes, and trees printed on one line for the XML tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "common/file_errors.h"
#include "common/memory_file.h"
#include "common/site.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace Xml::testing {

struct Parsed {
  std::unique_ptr<Tag> Root;  // null when the parse failed
  std::uint32_t Line = 0, Column = 0;
  std::uint32_t Code = 0;  // of the error left on the file
};

inline Parsed ParseBytes(std::string_view bytes) {
  auto file = Common::MemoryFile::Create();
  file->Write(bytes.data(), bytes.size());
  file->Seek(0);
  Parsed parsed;
  const bool ok = ParseDocument(parsed.Root, *file, parsed.Line, parsed.Column);
  EXPECT_EQ(ok, parsed.Root != nullptr) << "a failed parse leaves no tree: " << bytes;
  parsed.Code = file->Status.Code();
  return parsed;
}

inline std::unique_ptr<Tag> Parse(std::string_view bytes) { return ParseBytes(bytes).Root; }

inline std::string Write(const Tag* root, std::uint32_t flags) {
  auto file = Common::MemoryFile::Create();
  WriteDocument(root, *file, flags);
  return file->GetData() ? std::string(file->GetData(), file->Size()) : std::string();
}

// The element alone: no declaration, no final line break.
inline std::string WriteElement(const Tag& root, bool indent = false) {
  const std::string all = Write(&root, kNoDeclaration | (indent ? kIndent : 0));
  return all.substr(0, all.size() - 2);
}

// A tree on one line: name, attributes, then texts and children in
// brackets. Units outside printable ASCII, and "{", show as {hex}; a child
// that does not point back to its parent is marked "!".
inline std::string Dump(const Tag& tag) {
  const auto text = [](std::u16string_view s) {
    std::string out;
    for (const char16_t c : s) {
      char hex[10];
      std::snprintf(hex, sizeof hex, "{%X}", static_cast<unsigned>(c));
      out += c >= 0x20 && c < 0x7F && c != '{' ? std::string(1, static_cast<char>(c)) : hex;
    }
    return out;
  };
  std::string out = tag.Name;
  for (const auto& [name, value] : tag.Attributes) out += " " + name + "=\"" + text(value) + "\"";
  if (tag.Text.size() != tag.Children.size() + 1) return out + "[!texts]";
  // Appended piece by piece: g++ 12 at -O3 warns falsely (-Wrestrict) on
  // "literal" + temporary string.
  out += '[';
  out += text(tag.Text[0]);
  for (std::size_t i = 0; i < tag.Children.size(); ++i) {
    out += tag.Children[i]->Parent == &tag ? "" : "!";
    out += Dump(*tag.Children[i]);
    out += text(tag.Text[i + 1]);
  }
  return out + "]";
}

inline std::string Tree(std::string_view document) {
  const auto root = Parse(document);
  return root ? Dump(*root) : "<failed>";
}

// Hands out at most `chunk` bytes a read and notes what each read asked
// for; stores an error in its Status once `FailAfter` bytes are out.
struct TrickleFile : i_file {
  TrickleFile(std::string data, std::size_t chunk) : Data(std::move(data)), Chunk(chunk) {}
  std::size_t Read(void* buffer, std::size_t size) override {
    Requests.push_back(size);
    const std::size_t n = std::min({size, Chunk, Data.size() - Position});
    std::memcpy(buffer, Data.data() + Position, n);
    if ((Position += n) >= FailAfter) Status = Common::FileErrorOf(VR_SITE, FileError::Read);
    return n;
  }
  std::string Data;
  std::size_t Chunk, Position = 0, FailAfter = std::string::npos;
  std::vector<std::size_t> Requests;
};

struct CollectingFile : o_file {
  std::size_t Write(const void* buffer, std::size_t size) override {
    Bytes.append(static_cast<const char*>(buffer), size);
    return size;
  }
  void Flush() override { ++Flushes; }
  std::string Bytes;
  int Flushes = 0;
};

}  // namespace Xml::testing
