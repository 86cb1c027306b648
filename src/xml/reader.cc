#include "xml/reader.h"

#include "xml/binary_reader.h"
#include "xml/scanner.h"

namespace Xml {
namespace {

// Parses the body of `tag`, its start token already taken: attributes,
// content and the closing tag, leaving the scanner on the token after it.
// `inherited` is the parent's xml:space state.
bool ParseBody(Scanner& scanner, Tag& tag, bool inherited, std::uint32_t depth) {
  bool preserve = inherited;
  while (scanner.Current() != kTagEnd && scanner.Current() != kEmptyTagEnd) {
    if (scanner.Current() != kAttributeName) return false;
    const auto [slot, added] = tag.Attributes.try_emplace(scanner.Name());
    if (!added) return false;
    if (scanner.Next() != kValueStart) return false;
    std::u16string& value = slot->second;
    while (scanner.Next() == kText) value += scanner.Text();
    if (slot->first == "xml:space" && value == u"preserve") {
      preserve = true;
      scanner.SetPreserve(true);
    }
  }
  // The token after the end of this tag belongs to the parent: it is
  // scanned under the parent's xml:space. (Otherwise a preserving root
  // would take the line break behind it for text and fail.)
  if (scanner.Current() == kEmptyTagEnd) {
    scanner.SetPreserve(inherited);
    scanner.Next();
    return true;
  }

  for (scanner.Next(); scanner.Current() != kCloseTag;) {
    if (scanner.Current() == kText) {
      tag.Text.back() += scanner.Text();
      scanner.Next();
    } else if (scanner.Current() == kOpenTag) {
      if (depth >= kMaxDepth) return false;
      Tag* child = tag.Children.emplace_back(std::make_unique<Tag>(scanner.Name())).get();
      child->Parent = &tag;
      tag.Text.emplace_back();
      scanner.Next();
      if (!ParseBody(scanner, *child, preserve, depth + 1)) return false;
    } else {
      return false;
    }
  }
  if (scanner.Name() != tag.Name) return false;
  if (scanner.Next() != kTagEnd) return false;
  scanner.SetPreserve(inherited);
  scanner.Next();
  return true;
}

// The scanner holds the bytes from the marker on, the rest is still in its
// source. A document that holds no tag at all (layout 2 can say so) reads
// without error, but gives no tree, and a caller of ParseDocument relies on
// one: it fails here.
bool ParseBinaryDocument(std::unique_ptr<Tag>& root, Scanner& scanner) {
  const std::string_view taken = scanner.Unconsumed().substr(4);  // "BXML"
  return ReadBinaryDocument(root, scanner.Source(), taken) && root != nullptr;
}

}  // namespace

bool ParseDocument(std::unique_ptr<Tag>& root, i_file& file, std::uint32_t& line,
                   std::uint32_t& column) {
  root.reset();
  Scanner scanner(file);
  bool parsed = false;
  if (scanner.Current() == kOpenTag) {
    root = std::make_unique<Tag>(scanner.Name());
    scanner.Next();
    parsed = ParseBody(scanner, *root, false, 1) && scanner.Current() == kEndOfInput;
  } else if (scanner.Current() == kBinaryMarker) {
    parsed = ParseBinaryDocument(root, scanner);
  }
  parsed = parsed && !file.Failed();
  if (!parsed) root.reset();
  line = scanner.Line();
  column = scanner.Column() + 1;
  return parsed;
}

}  // namespace Xml
