#include "xml/binary_reader.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>

#include "common/assert.h"
#include "common/file_errors.h"
#include "common/site.h"
#include "xml/binary_text.h"
#include "xml/reader.h"

namespace Xml {
namespace {

constexpr char kSimpleReader[] = "core\\xml\\simple_reader";
constexpr char kBinary[] = "core\\xml\\binary";

// The bytes of a document, read from its file in blocks: a byte-by-byte
// read through the file's virtual Read would dominate the time.
class BinaryInput {
 public:
  BinaryInput(i_file& file, std::string_view taken)
      : file_(file), buffer_(taken), failed_(file.Failed()) {}

  // The file's Status changes only in Refill and Fail: a flag of its own
  // spares the many checks a trip through the file's virtual base.
  bool Ok() const { return !failed_; }

  // Stores an error on the file, unless it holds one already.
  void Fail(const Common::ErrorSite& site, std::uint32_t code) {
    if (file_.Status.IsEmpty()) file_.Status = Common::FileErrorOf(site, code);
    failed_ = true;
  }

  // 0 after the end, with 0x40002 stored.
  std::uint8_t Byte() {
    if (cursor_ == buffer_.size() && !Refill()) return 0;
    return static_cast<std::uint8_t>(buffer_[cursor_++]);
  }

  // Stops at the first error and gives what it has. Shifts wrap at 32, so
  // a long run of continuation bytes only costs the bytes it takes.
  std::uint32_t VarInt() {
    // Most numbers are one byte.
    if (cursor_ < buffer_.size() && !(buffer_[cursor_] & 0x80))
      return static_cast<std::uint8_t>(buffer_[cursor_++]);
    std::uint32_t value = 0;
    for (unsigned shift = 0; Ok(); shift = (shift + 7) % 32) {
      const std::uint8_t b = Byte();
      value |= static_cast<std::uint32_t>(b & 0x7F) << shift;
      if (!(b & 0x80)) break;
    }
    return value;
  }

  // The next `size` bytes where they stand, or nothing when they are not
  // all in the buffer yet.
  std::optional<std::string_view> Peek(std::size_t size) {
    if (buffer_.size() - cursor_ < size) return std::nullopt;
    const std::string_view bytes(buffer_.data() + cursor_, size);
    cursor_ += size;
    return bytes;
  }

  // Appends `size` bytes to `out`. A length is only a claim: the bytes are
  // taken block by block as they arrive, so a length past the end of the
  // file costs no more memory than the file holds, and fails with 0x40002.
  bool Bytes(std::size_t size, std::string& out) {
    while (size > 0) {
      if (cursor_ == buffer_.size() && !Refill()) return false;
      const std::size_t n = std::min(size, buffer_.size() - cursor_);
      out.append(buffer_, cursor_, n);
      cursor_ += n;
      size -= n;
    }
    return true;
  }

 private:
  static constexpr std::size_t kBlock = 65536;

  bool Refill() {
    if (!Ok()) return false;
    buffer_.resize(kBlock);
    cursor_ = 0;
    const std::size_t got = std::min(file_.Read(buffer_.data(), kBlock), kBlock);
    buffer_.resize(got);
    failed_ = file_.Failed();
    if (failed_) return false;
    if (got == 0) {
      static constexpr char kFile[] = "core\\file\\file";
      Fail(Common::ErrorSite{Common::detail::FileConstant(kFile), kFile, "i_file::Read", 0},
           FileError::EndOfFile);
      return false;
    }
    return true;
  }

  i_file& file_;
  std::string buffer_;
  std::size_t cursor_ = 0;
  bool failed_;
};

class xml_reader_core {
 public:
  xml_reader_core(BinaryInput& input, xml_reader_interface& handler)
      : input_(input), handler_(handler) {}
  virtual ~xml_reader_core() = default;
  virtual bool ReadTag() = 0;

 protected:
  // The id of a name's first use must be the next one to hand out: ids are
  // given in order of first use. An id beyond it was never defined and
  // fails, so the map grows by one entry per definition actually read.
  // `first` is the id of the first name: 0 or 1. Null at the end of the
  // input or at the end marker id 0 when `allowEnd`.
  const std::string* ReadName(bool allowEnd, std::uint32_t first) {
    const std::uint32_t id = input_.VarInt();
    if (!input_.Ok()) return nullptr;
    if (allowEnd && id == 0) return nullptr;
    if (id < first) return Corrupt(VR_SITE);
    const std::uint64_t index = id - first;
    if (index < names_.size()) return &names_[index];
    if (index > names_.size()) return Corrupt(VR_SITE);
    std::string& name = names_.emplace_back();
    if (!input_.Bytes(input_.VarInt(), name)) return nullptr;
    return input_.Ok() ? &name : nullptr;
  }

  // The byte length that comes first has been read.
  bool ReadText(std::size_t size, std::u16string& text) {
    std::optional<std::string_view> bytes = input_.Peek(size);
    if (!bytes) {
      scratch_.clear();
      if (!input_.Bytes(size, scratch_)) return false;
      bytes = scratch_;
    }
    if (!AppendStoredTextAsUtf16(text, *bytes)) return Corrupt(VR_SITE) != nullptr;
    return true;
  }

  // Nesting is capped like the text reader's: each level recurses once,
  // and a hostile document must not run the stack out.
  bool Enter() {
    if (depth_ >= kMaxDepth) return Corrupt(VR_SITE) != nullptr;
    ++depth_;
    return true;
  }
  void Leave() { --depth_; }

  std::nullptr_t Corrupt(const Common::ErrorSite& site) {
    input_.Fail(site, FileError::Corrupted);
    return nullptr;
  }

  BinaryInput& input_;
  xml_reader_interface& handler_;
  std::vector<std::string> names_;
  std::string scratch_;
  std::uint32_t depth_ = 0;
};

// Layout 1: counted lists, ids from 0.
class xml_reader_binary_old final : public xml_reader_core {
 public:
  using xml_reader_core::xml_reader_core;

  bool ReadTag() override {
    if (!Enter()) return false;
    const bool ok = ReadBody();
    Leave();
    return ok;
  }

 private:
  bool ReadBody() {
    const std::string* name = ReadName(false, 0);
    if (!name) return false;
    handler_.BeginTag(*name);
    for (unsigned count = input_.Byte(); count > 0 && input_.Ok(); --count) {
      const std::string* attribute = ReadName(false, 0);
      if (!attribute) return false;
      std::u16string value;
      if (!ReadText(input_.VarInt(), value)) return false;
      handler_.Attribute(*attribute, std::move(value));
    }
    const std::uint32_t textCount = input_.VarInt();
    if (!input_.Ok()) return false;
    // Without a text there is no entry for the text before the first
    // child: a tag always has one.
    if (!textCount && Common::Assert("textCount", kSimpleReader, 135)) return Corrupt(VR_SITE) != nullptr;
    handler_.ExpectTexts(textCount);
    if (!ReadTextItem()) return false;
    // The count is only a claim: the loop ends at the first error, so a
    // huge count in a short file costs no more than the file.
    for (std::uint32_t i = 1; i < textCount && input_.Ok(); ++i) {
      if (!ReadTag() || !ReadTextItem()) return false;
    }
    handler_.EndTag();
    return input_.Ok();
  }

  bool ReadTextItem() {
    std::u16string text;
    if (!ReadText(input_.VarInt(), text)) return false;
    handler_.Text(std::move(text));
    return true;
  }
};

// Layout 2: lists end with id 0, so ids start at 1; lengths carry a flag
// in their lowest bit.
class xml_reader_binary_new final : public xml_reader_core {
 public:
  using xml_reader_core::xml_reader_core;

  // False at the end marker as well as on failure.
  bool ReadTag() override {
    const std::string* name = ReadName(true, 1);
    if (!name) return false;
    if (!Enter()) return false;
    const bool ok = ReadBody(*name);
    Leave();
    return ok;
  }

 private:
  bool ReadBody(const std::string& name) {
    handler_.BeginTag(name);
    while (const std::string* attribute = ReadName(true, 1)) {
      const std::uint32_t textLength = input_.VarInt();
      if ((textLength & 1) != 0 && Common::Assert("(textLength & 1) == 0", kSimpleReader, 194))
        return Corrupt(VR_SITE) != nullptr;
      std::u16string value;
      if (!ReadText(textLength >> 1, value)) return false;
      handler_.Attribute(*attribute, std::move(value));
    }
    if (!input_.Ok() || !ReadTextItem()) return false;
    while (ReadTag()) {
      if (!ReadTextItem()) return false;
    }
    if (!input_.Ok()) return false;
    handler_.EndTag();
    return true;
  }

  bool ReadTextItem() {
    const std::uint32_t item = input_.VarInt();
    if (!input_.Ok()) return false;
    if (item & 1) {
      std::string narrow;
      if (!input_.Bytes(item >> 1, narrow)) return false;
      handler_.NarrowText(std::move(narrow));
      return true;
    }
    std::u16string text;
    if (!ReadText(item >> 1, text)) return false;
    handler_.Text(std::move(text));
    return true;
  }
};

}  // namespace

void binary_reader::BeginDocument() { tagStack.clear(); }

void binary_reader::EndDocument() {
  if (!tagStack.empty()) Common::Assert("!tagStack.size()", kBinary, 296);
}

void binary_reader::BeginTag(const std::string& name) {
  auto tag = std::make_unique<Tag>(name);
  Tag* made = tag.get();
  if (!tagStack.empty()) {
    Tag* top = tagStack.back();
    top->InsertChild(top->Text.size(), std::move(tag));
  } else {
    root_ = std::move(tag);
  }
  tagStack.push_back(made);
}

void binary_reader::EndTag() {
  if (!tagStack.empty()) tagStack.pop_back();
}

void binary_reader::Attribute(const std::string& name, std::u16string value) {
  if (tagStack.empty()) {
    Common::Assert("tagStack.size()", kBinary, 315);
    return;
  }
  // The writer gives attributes in map order, so the end is the place of
  // each new one; an existing name is left as it is all the same.
  auto& attributes = tagStack.back()->Attributes;
  attributes.emplace_hint(attributes.end(), name, std::move(value));
}

void binary_reader::Text(std::u16string text) {
  if (tagStack.empty()) {
    Common::Assert("tagStack.size()", kBinary, 321);
    return;
  }
  Tag* top = tagStack.back();
  if (top->Text.empty()) {
    Common::Assert("tagStack.back()->Text.size()", kBinary, 322);
    return;
  }
  top->Text.back() = std::move(text);
}

void binary_reader::ExpectTexts(std::uint32_t count) {
  // Room for a few children is made at once instead of child by child.
  // The count is only a claim, and a tag of a few bytes claiming millions
  // must not cost more than a few tags: the room is capped.
  constexpr std::uint32_t kMostReserved = 16;
  if (tagStack.empty() || count < 2) return;
  Tag* top = tagStack.back();
  const std::size_t texts = std::min(count, kMostReserved);
  top->Text.reserve(texts);
  top->Children.reserve(texts - 1);
}

bool ReadBinaryDocument(xml_reader_interface& handler, i_file& file, std::string_view taken) {
  BinaryInput input(file, taken);
  const std::uint8_t layout = input.Byte();
  input.Byte();  // the minor version says nothing to this reader
  if (!input.Ok()) return false;
  std::unique_ptr<xml_reader_core> reader;
  if (layout == 1) reader = std::make_unique<xml_reader_binary_old>(input, handler);
  else if (layout == 2) reader = std::make_unique<xml_reader_binary_new>(input, handler);
  else return false;
  handler.BeginDocument();
  reader->ReadTag();
  handler.EndDocument();
  return input.Ok();
}

bool ReadBinaryDocument(std::unique_ptr<Tag>& root, i_file& file, std::string_view taken) {
  binary_reader builder(root);
  return ReadBinaryDocument(builder, file, taken);
}

}  // namespace Xml
