// Xml::Scanner: cuts the bytes of an XML text into tokens for the reader.
// Internal to src/xml.
//
// It reads its source in blocks and keeps only the bytes from the current
// token on, so a document of any size passes through a small buffer (a
// single token, say a long text, stays whole). Whitespace is normalised
// here: a run of it becomes one pending space that is only emitted in front
// of something that follows in the same element.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "vellumrig/file.h"

namespace Xml {

enum Token : std::uint32_t {
  kEndOfInput = 0,
  kError = 1,
  kOpenTag = 2,       // "<name": Name()
  kTagEnd = 3,        // ">"
  kEmptyTagEnd = 4,   // "/>"
  kCloseTag = 5,      // "</name": Name()
  kAttributeName = 6, // Name()
  kValueStart = 7,    // "=" and the opening quote
  kText = 8,          // Text()
  kBinaryMarker = 9,  // "BXML" at the very start; the scanner stops there
};

class Scanner {
 public:
  // Reads the first token.
  explicit Scanner(i_file& source);
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  // Scans the next token. After end of input, an error or the binary
  // marker the scanner stays where it is and answers the same token.
  Token Next();

  Token Current() const { return token_; }
  const std::string& Name() const { return name_; }
  const std::u16string& Text() const { return text_; }

  // Whitespace in element content is kept as text while this is set.
  bool Preserve() const { return preserve_; }
  void SetPreserve(bool on) { preserve_ = on; }

  // The position of the current token: line from 1, column from 0 in bytes,
  // a tab moving it to the next multiple of 8.
  std::uint32_t Line() const { return line_; }
  std::uint32_t Column() const { return column_; }

  // For a reader that takes over at the binary marker: the bytes read from
  // the source and not consumed, starting with the marker; the rest of the
  // document is still in the source.
  std::string_view Unconsumed() const;
  i_file& Source() { return source_; }

 private:
  enum State : std::uint32_t {
    kStart = 0,
    kContent = 1,
    kCData = 2,
    kInTag = 3,
    kDoubleQuoted = 4,
    kSingleQuoted = 5,
    kComment = 6,
    kInstruction = 7,
    kDocType = 8,
    kStopped = 9,  // after end of input, an error or the binary marker
  };
  // What happens to the next whitespace.
  enum Mode : std::uint32_t {
    kCollapse = 0,  // a run of it becomes a pending space
    kPending = 1,   // a space is pending
    kDrop = 2,      // it is dropped
  };
  // A scanning step that consumed something and emitted no token.
  static constexpr int kNoToken = -1;

  unsigned char At(std::size_t offset) {
    const std::size_t i = cursor_ + offset;
    return i < buffer_.size() ? static_cast<unsigned char>(buffer_[i]) : Refill(offset);
  }
  unsigned char Refill(std::size_t offset);
  void Fill();
  bool Matches(std::size_t offset, std::string_view literal);
  std::size_t NameLength(std::size_t offset);
  void CountConsumed();
  int Fail(std::size_t at);
  int EmitText(std::size_t length);
  int EmitPendingSpace();
  void TakePendingSpace();

  int ScanStart();
  int ScanContent();
  int ScanCData();
  int ScanInTag();
  int ScanValue(unsigned char quote);
  int SkipUntil(std::string_view end, unsigned char refused);
  int ScanEntity();

  i_file& source_;
  std::string buffer_;
  std::size_t start_ = 0;    // the current token's first byte
  std::size_t cursor_ = 0;   // the next byte to scan
  std::size_t counted_ = 0;  // bytes before it are in line_ and column_
  State state_ = kStart;
  Mode mode_ = kDrop;
  bool eof_ = false;
  bool preserve_ = false;
  std::uint32_t line_ = 1;
  std::uint32_t column_ = 0;
  Token token_ = kEndOfInput;
  std::string name_;
  std::u16string text_;
};

}  // namespace Xml
