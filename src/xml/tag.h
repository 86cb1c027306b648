// Xml::Tag: one element of a document held in memory, owning its children.
// Module-internal: the machine configuration and the XML reader and writer
// work on it.
//
// Text always has one entry more than Children: Text[0] is the text before
// the first child and Text[i + 1] the text after child i. A tag whose name
// begins with "!--" is a comment, its body in Text[0].
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Xml {

class Tag {
 public:
  Tag() : Text(1) {}
  explicit Tag(std::string name) : Name(std::move(name)), Text(1) {}
  Tag(const Tag&) = delete;
  Tag& operator=(const Tag&) = delete;

  std::u16string GetText() const;

  // The first child of that exact name, or null.
  Tag* FindChild(const std::string& name) const;
  // The first child of that name whose attribute equals `value`; a child
  // without the attribute does not match.
  Tag* FindChild(const std::string& name, const std::string& attribute,
                 const std::u16string& value) const;

  std::u16string GetAttribute(const std::string& name, const std::u16string& fallback) const;
  void SetAttribute(const std::string& name, std::u16string value);

  // Puts the child in front of Text[position] less one, that is behind
  // Text[position - 1], and a new empty text entry behind it: position
  // Text.size() appends. Valid positions are 1 to Text.size(). Returns the
  // child, now owned by this tag.
  Tag* InsertChild(std::size_t position, std::unique_ptr<Tag> child);

  // Takes the child out and joins the texts on either side of it, so that
  // the gap it leaves does not read as a doubled space. Hands the child back
  // to the caller; null when it is not a child of this tag.
  std::unique_ptr<Tag> RemoveChild(const Tag* child);

  std::string Name;
  std::map<std::string, std::u16string> Attributes;  // sorted: writing is deterministic
  std::vector<std::unique_ptr<Tag>> Children;
  std::vector<std::u16string> Text;
  Tag* Parent = nullptr;
};

}  // namespace Xml
