#include "xml_commands.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

#include "cli.h"
#include "common/site.h"
#include "provider/xml_helpers.h"
#include "vhdx_access.h"
#include "xml/reader.h"
#include "xml/writer.h"

namespace vrig {
namespace {

std::unique_ptr<Xml::Tag> ReadTree(const std::string& path) {
  Place place = PlaceOf(path, true);
  std::unique_ptr<i_file> file = place.Folder->OpenFile(place.Name, kOpenRead);
  if (!file) throw Failure{place.Folder->TakeError()};
  std::unique_ptr<Xml::Tag> root;
  std::uint32_t line = 0, column = 0;
  if (!Xml::ParseDocument(root, *file, line, column)) {
    Common::Error error = VirtualWareRaw::SyntaxError(VR_SITE, line, column);
    if (file->Failed()) error.AddReason(file->TakeError());
    throw Failure{error};
  }
  return root;
}

// Text goes out as a machine configuration is saved: byte order mark,
// declaration, no indentation. So a .vmc converted to binary and back is
// the file it was.
void WriteTree(const Xml::Tag& root, const std::string& path, bool binary) {
  PartialFile partial(path);
  {
    Place place = PlaceOf(partial.Path(), false);
    std::unique_ptr<rio_file> file = place.Folder->CreateFile(place.Name, 0, 0);
    if (!file) throw Failure{place.Folder->TakeError()};
    Xml::WriteDocument(&root, *file, binary ? Xml::kBinary : Xml::kByteOrderMark);
    if (file->Failed()) throw Failure{file->TakeError()};
  }
  partial.Publish();
}

int Convert(std::vector<std::string> args) {
  const bool binary = std::erase(args, "--binary") > 0;
  const bool text = std::erase(args, "--text") > 0;
  if (args.size() != 2 || binary == text)
    throw UsageError{"xml convert needs <in> <out> and one of --binary and --text"};
  // Never over a file of the user's: the partial file is published only
  // under a name that is still free.
  if (PathExists(args[1])) throw std::runtime_error("'" + args[1] + "' exists; it is not overwritten");
  WriteTree(*ReadTree(args[0]), args[1], binary);
  return 0;
}

}  // namespace

int XmlCommand(const std::vector<std::string>& args) {
  if (!args.empty() && args[0] == "convert") return Convert({args.begin() + 1, args.end()});
  throw UsageError{args.empty() ? "xml needs a subcommand" : "unknown xml command: " + args[0]};
}

}  // namespace vrig
