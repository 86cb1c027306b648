// A JSON writer for vrig's --json output: objects, arrays, strings (UTF-8,
// escaped), numbers and booleans, indented two spaces a level. For
// tools/vrig only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrig {

class Json {
 public:
  // Inside an object, each value is preceded by Key.
  Json& Key(const std::string& name);
  Json& BeginObject();
  Json& EndObject();
  Json& BeginArray();
  Json& EndArray();
  Json& String(const std::string& value);
  Json& Number(std::uint64_t value);
  Json& Bool(bool value);
  Json& Null();

  // The document, ending in a newline.
  std::string Text() const { return out_ + "\n"; }

 private:
  void BeforeValue();
  void Close(char bracket);
  void Quote(const std::string& value);

  std::string out_;
  // Per open container: whether it holds a value yet.
  std::vector<bool> filled_;
  bool afterKey_ = false;
};

}  // namespace vrig
