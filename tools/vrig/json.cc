#include "json.h"

#include <cstdio>

namespace vrig {

void Json::BeforeValue() {
  if (afterKey_) {
    afterKey_ = false;
    return;
  }
  if (filled_.empty()) return;
  if (filled_.back()) out_ += ',';
  filled_.back() = true;
  out_ += '\n' + std::string(2 * filled_.size(), ' ');
}

Json& Json::Key(const std::string& name) {
  BeforeValue();
  Quote(name);
  out_ += ": ";
  afterKey_ = true;
  return *this;
}

Json& Json::BeginObject() {
  BeforeValue();
  out_ += '{';
  filled_.push_back(false);
  return *this;
}

Json& Json::BeginArray() {
  BeforeValue();
  out_ += '[';
  filled_.push_back(false);
  return *this;
}

void Json::Close(char bracket) {
  const bool filled = filled_.back();
  filled_.pop_back();
  if (filled) out_ += '\n' + std::string(2 * filled_.size(), ' ');
  out_ += bracket;
}

Json& Json::EndObject() {
  Close('}');
  return *this;
}

Json& Json::EndArray() {
  Close(']');
  return *this;
}

Json& Json::String(const std::string& value) {
  BeforeValue();
  Quote(value);
  return *this;
}

void Json::Quote(const std::string& value) {
  out_ += '"';
  for (const char c : value) {
    switch (c) {
      case '"': out_ += "\\\""; break;
      case '\\': out_ += "\\\\"; break;
      case '\n': out_ += "\\n"; break;
      case '\t': out_ += "\\t"; break;
      case '\r': out_ += "\\r"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
          out_ += escaped;
        } else {
          out_ += c;  // UTF-8 passes as it is
        }
    }
  }
  out_ += '"';
}

Json& Json::Number(std::uint64_t value) {
  BeforeValue();
  out_ += std::to_string(value);
  return *this;
}

Json& Json::Bool(bool value) {
  BeforeValue();
  out_ += value ? "true" : "false";
  return *this;
}

Json& Json::Null() {
  BeforeValue();
  out_ += "null";
  return *this;
}

}  // namespace vrig
