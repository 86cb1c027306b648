#include "xml/scanner.h"

#include <algorithm>

#include "xml/utf8.h"

namespace Xml {
namespace {

// Blocks are small at the start so that a reader of the binary form, which
// takes over after the first four bytes, finds most of the file unread.
constexpr std::size_t kStartBlock = 4;
constexpr std::size_t kBlock = 32768;

bool IsSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool IsControl(unsigned char c) { return c < 0x20 && !IsSpace(c); }
bool IsNameStart(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':';
}
bool IsNameChar(unsigned char c) {
  return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}
int DigitValue(unsigned char c, bool hex) {
  if (c >= '0' && c <= '9') return c - '0';
  if (!hex) return -1;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

Scanner::Scanner(i_file& source) : source_(source) { Next(); }

std::string_view Scanner::Unconsumed() const {
  std::string_view all(buffer_);
  if (eof_) all.remove_suffix(1);  // the sentinel
  return all.substr(std::min(start_, all.size()));
}

unsigned char Scanner::Refill(std::size_t offset) {
  while (cursor_ + offset >= buffer_.size()) {
    // Past the end of input every byte reads as zero, which every state
    // takes as the end of what it scans.
    if (eof_) return 0;
    Fill();
  }
  return static_cast<unsigned char>(buffer_[cursor_ + offset]);
}

void Scanner::Fill() {
  if (start_ > 0) {
    buffer_.erase(0, start_);
    cursor_ -= start_;
    counted_ -= start_;
    start_ = 0;
  }
  const std::size_t block = state_ == kStart ? kStartBlock : kBlock;
  const std::size_t had = buffer_.size();
  buffer_.resize(had + block);
  const std::size_t got = std::min(source_.Read(buffer_.data() + had, block), block);
  buffer_.resize(had + got);
  if (got == 0) {
    eof_ = true;
    buffer_.push_back('\0');
  }
}

bool Scanner::Matches(std::size_t offset, std::string_view literal) {
  for (std::size_t i = 0; i < literal.size(); ++i)
    if (At(offset + i) != static_cast<unsigned char>(literal[i])) return false;
  return true;
}

std::size_t Scanner::NameLength(std::size_t offset) {
  std::size_t n = 0;
  while (IsNameChar(At(offset + n))) ++n;
  return n;
}

void Scanner::CountConsumed() {
  for (; counted_ < cursor_; ++counted_) {
    switch (buffer_[counted_]) {
      case '\t': column_ = (column_ & ~7u) + 8; break;
      case '\n': ++line_; column_ = 0; break;
      default: ++column_; break;
    }
  }
}

int Scanner::Fail(std::size_t at) {
  cursor_ = at;
  CountConsumed();
  start_ = at;
  state_ = kStopped;
  // Every state refuses the zero sentinel: that is how the end of input
  // shows, and it is no error there.
  return eof_ && at + 1 == buffer_.size() ? kEndOfInput : kError;
}

void Scanner::TakePendingSpace() {
  if (mode_ == kPending) text_.push_back(u' ');
}

int Scanner::EmitPendingSpace() {
  text_.push_back(u' ');
  mode_ = kCollapse;
  return kText;  // the cursor stays: the next step scans the same bytes again
}

int Scanner::EmitText(std::size_t length) {
  TakePendingSpace();
  if (!AppendUtf8AsUtf16(text_, std::string_view(buffer_).substr(cursor_, length)))
    return Fail(cursor_);
  cursor_ += length;
  mode_ = kCollapse;
  return kText;
}

Token Scanner::Next() {
  if (state_ == kStopped) return token_;
  name_.clear();
  text_.clear();
  for (;;) {
    CountConsumed();
    start_ = cursor_;
    int token = kNoToken;
    switch (state_) {
      case kStart: token = ScanStart(); break;
      case kContent: token = ScanContent(); break;
      case kCData: token = ScanCData(); break;
      case kInTag: token = ScanInTag(); break;
      case kDoubleQuoted: token = ScanValue('"'); break;
      case kSingleQuoted: token = ScanValue('\''); break;
      case kComment: token = SkipUntil("-->", 0); break;
      case kInstruction: token = SkipUntil("?>", 0); break;
      case kDocType: token = SkipUntil(">", '['); break;  // no internal subset
      case kStopped: token = token_; break;
    }
    if (token != kNoToken) return token_ = static_cast<Token>(token);
  }
}

int Scanner::ScanStart() {
  if (Matches(0, "BXML")) {
    state_ = kStopped;
    return kBinaryMarker;
  }
  if (Matches(0, "\xEF\xBB\xBF")) {
    cursor_ += 3;
    return kNoToken;
  }
  state_ = kContent;
  return kNoToken;
}

int Scanner::ScanContent() {
  const unsigned char c = At(0);
  if (IsSpace(c)) {
    std::size_t n = 1;
    while (IsSpace(At(n))) ++n;
    if (preserve_) return EmitText(n);
    cursor_ += n;
    if (mode_ == kCollapse) mode_ = kPending;
    return kNoToken;
  }
  if (c < 0x20) return Fail(cursor_);
  if (c == '&') return ScanEntity();
  if (c != '<') {
    std::size_t n = 1;
    for (unsigned char b; (b = At(n)) > ' ' && b != '<' && b != '&';) ++n;
    return EmitText(n);
  }

  const unsigned char next = At(1);
  if (IsNameStart(next)) {
    if (mode_ == kPending) return EmitPendingSpace();
    const std::size_t n = NameLength(1);
    name_.assign(buffer_, cursor_ + 1, n);
    cursor_ += 1 + n;
    state_ = kInTag;
    mode_ = kDrop;
    return kOpenTag;
  }
  if (next == '/' && IsNameStart(At(2))) {
    // Whitespace pending here was trailing: it is lost.
    const std::size_t n = NameLength(2);
    name_.assign(buffer_, cursor_ + 2, n);
    cursor_ += 2 + n;
    state_ = kInTag;
    mode_ = kCollapse;
    return kCloseTag;
  }
  if (next == '?') {
    cursor_ += 2;
    state_ = kInstruction;
    return kNoToken;
  }
  if (Matches(1, "!--")) {
    cursor_ += 4;
    state_ = kComment;
    return kNoToken;
  }
  if (Matches(1, "!DOCTYPE") && IsSpace(At(9))) {
    cursor_ += 10;
    state_ = kDocType;
    return kNoToken;
  }
  if (Matches(1, "![CDATA[")) {
    if (mode_ == kPending) return EmitPendingSpace();
    cursor_ += 9;
    state_ = kCData;
    mode_ = kCollapse;
    return kNoToken;
  }
  return Fail(cursor_);
}

int Scanner::ScanCData() {
  const unsigned char c = At(0);
  if (c == ']' && At(1) == ']' && At(2) == '>') {
    cursor_ += 3;
    state_ = kContent;
    return kText;  // empty: the section may have held nothing
  }
  if (c == '\t' || c == '\n') {
    text_.push_back(c);
    ++cursor_;
    return kText;
  }
  if (c == '\r') {
    ++cursor_;
    return kNoToken;
  }
  if (c < 0x20) return Fail(cursor_);
  std::size_t n = 1;
  for (unsigned char b; (b = At(n)) >= ' ' && b != ']';) ++n;
  return EmitText(n);
}

int Scanner::ScanInTag() {
  const unsigned char c = At(0);
  if (IsSpace(c)) {
    std::size_t n = 1;
    while (IsSpace(At(n))) ++n;
    cursor_ += n;
    return kNoToken;
  }
  if (c == '>') {
    ++cursor_;
    state_ = kContent;
    return kTagEnd;
  }
  if (c == '/' && At(1) == '>') {
    cursor_ += 2;
    state_ = kContent;
    mode_ = kCollapse;
    return kEmptyTagEnd;
  }
  if (IsNameStart(c)) {
    const std::size_t n = NameLength(0);
    name_.assign(buffer_, cursor_, n);
    cursor_ += n;
    return kAttributeName;
  }
  if (c == '=') {
    std::size_t k = 1;
    while (IsSpace(At(k))) ++k;
    const unsigned char quote = At(k);
    if (quote == '"') state_ = kDoubleQuoted;
    else if (quote == '\'') state_ = kSingleQuoted;
    else return Fail(cursor_);
    cursor_ += k + 1;
    mode_ = kDrop;
    return kValueStart;
  }
  return Fail(cursor_);
}

int Scanner::ScanValue(unsigned char quote) {
  const unsigned char c = At(0);
  if (c == quote) {
    ++cursor_;
    state_ = kInTag;
    mode_ = kDrop;  // a space pending at the closing quote is dropped
    return kNoToken;
  }
  // Values are normalised whatever xml:space says.
  if (IsSpace(c)) {
    ++cursor_;
    if (mode_ == kCollapse) mode_ = kPending;
    return kNoToken;
  }
  if (c == '&') return ScanEntity();
  if (c == '<' || c < 0x20) return Fail(cursor_);
  std::size_t n = 1;
  for (unsigned char b; (b = At(n)) > ' ' && b != quote && b != '<' && b != '&';) ++n;
  return EmitText(n);
}

int Scanner::SkipUntil(std::string_view end, unsigned char refused) {
  const unsigned char c = At(0);
  if (c == static_cast<unsigned char>(end[0]) && Matches(0, end)) {
    cursor_ += end.size();
    state_ = kContent;
    return kNoToken;
  }
  if (IsControl(c) || c == refused) return Fail(cursor_);
  // Skips only what is buffered: the skipped bytes can then be dropped at
  // the next fill, however long the comment is.
  std::size_t n = 1;
  while (cursor_ + n < buffer_.size()) {
    const auto b = static_cast<unsigned char>(buffer_[cursor_ + n]);
    if (b == static_cast<unsigned char>(end[0]) || b == refused || IsControl(b)) break;
    ++n;
  }
  cursor_ += n;
  return kNoToken;
}

int Scanner::ScanEntity() {
  char32_t value;
  std::size_t length;
  if (Matches(1, "lt;")) {
    value = '<', length = 4;
  } else if (Matches(1, "gt;")) {
    value = '>', length = 4;
  } else if (Matches(1, "amp;")) {
    value = '&', length = 5;
  } else if (Matches(1, "apos;")) {
    value = '\'', length = 6;
  } else if (Matches(1, "quot;")) {
    value = '"', length = 6;
  } else if (At(1) == '#') {
    // Only a lower-case x marks hexadecimal: "&#X" has no digits.
    const bool hex = At(2) == 'x';
    const std::size_t first = hex ? 3 : 2;
    std::size_t k = first;
    std::uint32_t number = 0;
    for (int digit; (digit = DigitValue(At(k), hex)) >= 0; ++k)
      number = std::min<std::uint32_t>(number * (hex ? 16 : 10) + digit, 0x110000);
    if (k == first || At(k) != ';' || number >= 0x110000) return Fail(cursor_ + 1);
    value = number;
    length = k + 1;
  } else {
    return Fail(cursor_ + 1);
  }
  TakePendingSpace();
  AppendCodePointAsUtf16(text_, value);
  cursor_ += length;
  mode_ = kCollapse;
  return kText;
}

}  // namespace Xml
