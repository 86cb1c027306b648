// Reading the binary form of a tag tree: a document that begins with
// "BXML", a layout byte (1 or 2) and a minor version byte. Internal to
// src/xml; ParseDocument hands over here when it meets the marker.
//
// Failures are stored on the file: a short read as 0x40002, bytes that no
// writer produces (an id that was never defined, a cut or broken text,
// nesting deeper than the text reader takes) as 0x4000D.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "vellumrig/file.h"
#include "xml/reader_interface.h"
#include "xml/tag.h"

namespace Xml {

// Builds a tree of tags from what a reader hands it.
class binary_reader : public xml_reader_interface {
 public:
  // The tree replaces what `root` held once the first tag begins.
  explicit binary_reader(std::unique_ptr<Tag>& root) : root_(root) {}

  void BeginDocument() override;
  void EndDocument() override;
  void BeginTag(const std::string& name) override;
  void EndTag() override;
  void Attribute(const std::string& name, std::u16string value) override;
  void Text(std::u16string text) override;
  void ExpectTexts(std::uint32_t count) override;

 private:
  std::unique_ptr<Tag>& root_;
  std::vector<Tag*> tagStack;
};

// Reads the document from its layout byte on: the magic has been taken.
// `taken` holds bytes that were already read from `file` behind the magic
// and come first. Drives `handler`; true when the file holds no error
// afterwards.
bool ReadBinaryDocument(xml_reader_interface& handler, i_file& file, std::string_view taken = {});

// The same, building the tree into `root`; on failure `root` holds what was
// built so far.
bool ReadBinaryDocument(std::unique_ptr<Tag>& root, i_file& file, std::string_view taken = {});

}  // namespace Xml
