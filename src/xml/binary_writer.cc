#include "xml/binary_writer.h"

#include <string>
#include <unordered_map>

#include "common/assert.h"
#include "common/file_errors.h"
#include "common/site.h"
#include "xml/binary_text.h"
#include "xml/varint.h"

namespace Xml {
namespace {

constexpr char kBinary[] = "core\\xml\\binary";

class BinaryWriter {
 public:
  explicit BinaryWriter(o_file& file) : file_(file) {}

  void Header() { buffer_.append("BXML\x01\x01", 6); }

  void WriteTag(const Tag& tag) {
    if (file_.Failed()) return;
    Name(tag.Name);
    // One byte: past 255 attributes the count wraps, and the document no
    // longer reads back as written. The machine configuration has a handful.
    buffer_.push_back(static_cast<char>(tag.Attributes.size() & 0xFF));
    for (const auto& [name, value] : tag.Attributes) {
      Name(name);
      Text(value);
    }
    AppendVarInt(buffer_, static_cast<std::uint32_t>(tag.Text.size()));
    if (tag.Text.size() != tag.Children.size() + 1)
      Common::Assert("tag->Text.size() == (tag->Children.size() + 1)", kBinary, 155);
    Text(tag.Text.empty() ? std::u16string_view() : std::u16string_view(tag.Text[0]));
    for (std::size_t i = 0; i < tag.Children.size(); ++i) {
      if (buffer_.size() >= kBlock) Send();
      WriteTag(*tag.Children[i]);
      Text(i + 1 < tag.Text.size() ? std::u16string_view(tag.Text[i + 1]) : std::u16string_view());
    }
  }

  void Send() {
    if (buffer_.empty() || file_.Failed()) return;
    const std::size_t written = file_.Write(buffer_.data(), buffer_.size());
    // A short count with a clear status would lose the rest silently.
    if (written < buffer_.size() && !file_.Failed())
      file_.Status = Common::FileErrorOf(VR_SITE, FileError::Write);
    buffer_.clear();
  }

 private:
  static constexpr std::size_t kBlock = 65536;

  // The first use writes the id, the length and the bytes; every later one
  // only the id.
  void Name(const std::string& name) {
    const auto [slot, added] = ids_.try_emplace(name, static_cast<std::uint32_t>(ids_.size()));
    AppendVarInt(buffer_, slot->second);
    if (!added) return;
    AppendVarInt(buffer_, static_cast<std::uint32_t>(name.size()));
    buffer_ += name;
  }

  void Text(std::u16string_view text) {
    scratch_.clear();
    AppendStoredText(scratch_, text);
    AppendVarInt(buffer_, static_cast<std::uint32_t>(scratch_.size()));
    buffer_ += scratch_;
  }

  o_file& file_;
  std::string buffer_;
  std::string scratch_;
  std::unordered_map<std::string, std::uint32_t> ids_;
};

}  // namespace

bool WriteBinaryDocument(const Tag* root, o_file& file) {
  if (!root) return !file.Failed();
  BinaryWriter writer(file);
  writer.Header();
  writer.WriteTag(*root);
  writer.Send();
  return !file.Failed();
}

}  // namespace Xml
