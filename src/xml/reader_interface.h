// xml_reader_interface: what a reader of the binary document form drives as
// it goes, in document order. Internal to src/xml; binary_reader builds a
// tree of tags from it, and a caller that wants something else derives its
// own. Every operation does nothing here.
#pragma once

#include <cstdint>
#include <string>

namespace Xml {

class xml_reader_interface {
 public:
  virtual ~xml_reader_interface() = default;
  virtual void BeginDocument() {}
  virtual void EndDocument() {}
  virtual void BeginTag(const std::string& /*name*/) {}
  virtual void EndTag() {}
  virtual void Attribute(const std::string& /*name*/, std::u16string /*value*/) {}
  virtual void Text(std::u16string /*text*/) {}
  virtual void NarrowText(std::string /*text*/) {}
  // From a reader that knows, before the first Text of the current tag,
  // how many Text entries it will have (its children are one fewer). Only
  // a claim of the file: a builder may make room, within reason.
  virtual void ExpectTexts(std::uint32_t /*count*/) {}
};

}  // namespace Xml
