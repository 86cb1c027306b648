// The machine configuration (.vmc) as a tree that is read and changed by
// dotted paths. Module-internal: the machine object uses it.
//
// A Configuration is a view of one tag. The parser owns the document and is
// itself the view of its root; child views hold plain pointers into the
// tree and must not outlive the parser. On a parser the first component of
// a path names the root tag; on a child view all components are relative
// to its tag. A view remembers its last resolved path: asking the same path
// again without an attribute gives that tag at once, even when an attribute
// chose it before.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/file.h"
#include "xml/tag.h"

namespace VirtualWareRaw {

class Configuration {
 public:
  virtual ~Configuration() = default;
  // Adds the tag of `child` at the end of this tag's children.
  virtual void AppendChild(std::unique_ptr<Configuration> child) = 0;
  // A new view of the tag at `path`, chosen by the attribute when one is
  // named; with `create`, missing tags are made. Null when not found.
  virtual std::unique_ptr<Configuration> OpenChild(const std::string& path,
                                                   const std::string& attribute,
                                                   const std::u16string& value, bool create) = 0;
  // The index-th tag (from 0) of the same name as the tag at `path`, among
  // that tag's parent's children; null when there is none.
  virtual std::unique_ptr<Configuration> OpenChildByIndex(const std::string& path,
                                                          std::uint32_t index) = 0;
  virtual void SetValue(const std::string& path, const std::u16string& value) = 0;
  virtual void SetValue(const std::u16string& value) = 0;
  virtual void SetAttribute(const std::string& path, const std::string& name,
                            const std::u16string& value) = 0;
  virtual void SetAttribute(const std::string& name, const std::u16string& value) = 0;
  // False when the tag does not exist; an existing empty tag gives true and
  // an empty value.
  virtual bool GetValue(const std::string& path, std::u16string& value) = 0;
  virtual bool GetAttribute(const std::string& path, const std::string& name,
                            std::u16string& value) = 0;
  // Always throws: values are not removed one by one.
  virtual void RemoveValue(const std::string& path) = 0;
  // Removes this view's tag from its parent and frees it.
  virtual void Remove() = 0;
  virtual bool IsRoot() const = 0;
  virtual void CreateRoot(const std::string& name) = 0;
};

class ConfigurationParser : public virtual Configuration {
 public:
  // Writes the document (with the UTF-8 byte order mark when asked); true
  // when the stream shows no error afterwards.
  virtual bool Save(o_file& stream, bool byteOrderMark) = 0;
};

// A parser of `source`, or of an empty document when null. A source that
// does not parse throws 0x53000C "Failed to parse virtual machine
// configuration file." with the position as its cause.
std::unique_ptr<ConfigurationParser> MakeConfigurationParser(i_file* source);

// Set the attribute type ("string" or "integer") first, so that a new tag
// carries it before its text.
void SetStringValue(Configuration* parser, const std::string& path, const std::u16string& value);
void SetIntegerValue(Configuration* parser, const std::string& path, std::uint32_t value);

}  // namespace VirtualWareRaw
