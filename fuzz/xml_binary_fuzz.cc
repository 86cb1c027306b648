// Any bytes behind the "BXML" marker go through the binary reader. A layout
// 1 document that fails must leave its error on the file; whatever is
// accepted must be written in the binary form, read again and written to
// the same bytes (unless a tag has more attributes than layout 1 counts).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "common/memory_file.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace {

std::unique_ptr<Xml::Tag> Read(Common::MemoryFile& file) {
  file.Seek(0);
  std::unique_ptr<Xml::Tag> root;
  std::uint32_t line = 0, column = 0;
  if (!Xml::ParseDocument(root, file, line, column)) return nullptr;
  if (!root) std::abort();
  return root;
}

std::string Binary(const Xml::Tag& root) {
  auto sink = Common::MemoryFile::Create();
  Xml::WriteDocument(&root, *sink, Xml::kBinary);
  if (sink->Failed() || !sink->GetData()) std::abort();
  return std::string(sink->GetData(), sink->Size());
}

// The count of attributes is one byte in layout 1: a tag with more (layout
// 2 has no limit) cannot come back as it was.
bool Writable(const Xml::Tag& tag) {
  if (tag.Attributes.size() > 255) return false;
  for (const auto& child : tag.Children)
    if (!Writable(*child)) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto source = Common::MemoryFile::Create();
  source->Write("BXML", 4);
  source->Write(data, size);
  const auto root = Read(*source);
  if (!root) {
    // Layout 2 may end before its root without an error; layout 1 cannot.
    if (size > 0 && data[0] == 1 && !source->Failed()) std::abort();
    return 0;
  }
  if (!Writable(*root)) return 0;
  const std::string once = Binary(*root);
  auto again = Common::MemoryFile::Create();
  again->Write(once.data(), once.size());
  const auto back = Read(*again);
  if (!back || Binary(*back) != once) std::abort();
  return 0;
}
