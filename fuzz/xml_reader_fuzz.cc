// Any bytes go through the XML reader; whatever it accepts must survive
// being written back (plain, with the byte order mark, indented) and read
// again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "common/memory_file.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace {

std::unique_ptr<Xml::Tag> Read(Common::MemoryFile& file) {
  file.Seek(0);
  std::unique_ptr<Xml::Tag> root;
  std::uint32_t line = 0, column = 0;
  if (!Xml::ParseDocument(root, file, line, column)) return nullptr;
  if (!root || line == 0 || column == 0) std::abort();
  return root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto source = Common::MemoryFile::Create();
  source->Write(data, size);
  const auto root = Read(*source);
  if (!root) return 0;
  for (std::uint32_t flags : {0u, Xml::kByteOrderMark, Xml::kIndent}) {
    auto sink = Common::MemoryFile::Create();
    Xml::WriteDocument(root.get(), *sink, flags);
    if (sink->Failed() || !Read(*sink)) std::abort();
  }
  return 0;
}
