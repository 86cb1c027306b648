#include "xml/writer.h"

#include <string>
#include <string_view>

#include "xml/binary_writer.h"
#include "xml/escape.h"

namespace Xml {
namespace {

static_assert(sizeof kDeclaration - 1 == 41);

class TextWriter {
 public:
  explicit TextWriter(o_file& file) : file_(file) {}

  void Append(std::string_view bytes) { buffer_ += bytes; }

  void Send() {
    if (!buffer_.empty()) file_.Write(buffer_.data(), buffer_.size());
    buffer_.clear();
  }

  // Depth -1 means no indentation, and stays -1 for every child.
  void WriteTag(const Tag& tag, int depth) {
    buffer_ += '<';
    buffer_ += tag.Name;
    if (tag.Name.starts_with("!--")) {
      buffer_ += ' ';
      AppendCommentBody(buffer_, TextAt(tag, 0));
      buffer_ += " -->";
      return;
    }
    for (const auto& [name, value] : tag.Attributes) {
      buffer_ += ' ';
      buffer_ += name;
      buffer_ += "=\"";
      AppendEscaped(buffer_, value, true);
      buffer_ += '"';
    }

    // The root at depth 0 keeps its own closing tag, even when empty.
    if (depth != 0 && tag.Children.empty()) {
      const std::u16string_view text = TextAt(tag, 0);
      if (text.empty()) {
        buffer_ += depth > 0 ? " />" : "/>";
      } else {
        buffer_ += '>';
        AppendEscaped(buffer_, text, false);
        CloseTag(tag);
      }
      return;
    }

    buffer_ += '>';
    const int childDepth = depth < 0 ? -1 : depth + 1;
    for (std::size_t i = 0; i <= tag.Children.size(); ++i) {
      std::u16string_view text = TextAt(tag, i);
      const Tag* child = i < tag.Children.size() ? tag.Children[i].get() : nullptr;
      // A space next to a child was a line break when the text was read.
      bool lineBreak = depth != -1;
      if (child && !text.empty() && text.back() == u' ') {
        text.remove_suffix(1);
        lineBreak = true;
      }
      if (!text.empty()) {
        if (i > 0 && text.size() >= 2 && text.front() == u' ') {
          text.remove_prefix(1);
          NewLine(depth + 1);
        } else if (depth != -1) {
          NewLine(depth + 1);
        }
        AppendEscaped(buffer_, text, false);
      }
      if (lineBreak) {
        buffer_ += "\r\n";
        if (child) Tabs(depth + 1);
      }
      if (child) {
        Send();
        WriteTag(*child, childDepth);
      }
    }
    if (depth > 0) Tabs(depth);
    CloseTag(tag);
  }

 private:
  static std::u16string_view TextAt(const Tag& tag, std::size_t i) {
    return i < tag.Text.size() ? std::u16string_view(tag.Text[i]) : std::u16string_view();
  }
  void Tabs(int count) {
    if (count > 0) buffer_.append(static_cast<std::size_t>(count), '\t');
  }
  void NewLine(int tabs) {
    buffer_ += "\r\n";
    Tabs(tabs);
  }
  void CloseTag(const Tag& tag) {
    buffer_ += "</";
    buffer_ += tag.Name;
    buffer_ += '>';
  }

  o_file& file_;
  std::string buffer_;
};

}  // namespace

void WriteDocument(const Tag* root, o_file& file, std::uint32_t flags) {
  if (flags & kBinary) {
    WriteBinaryDocument(root, file);
  } else if (root) {
    TextWriter writer(file);
    if (flags & kByteOrderMark) writer.Append("\xEF\xBB\xBF");
    if (!(flags & kNoDeclaration)) writer.Append(kDeclaration);
    writer.WriteTag(*root, (flags & kIndent) ? 0 : -1);
    writer.Append("\r\n");
    writer.Send();
  }
  file.Flush();
}

}  // namespace Xml
