#include "provider/xml_helpers.h"

#include "common/memory_file.h"
#include "common/site.h"
#include "provider/errors.h"
#include "vellumrig/error_text.h"
#include "xml/reader.h"

namespace VirtualWareRaw {

Common::Error SyntaxError(const Common::ErrorSite& site, std::uint32_t line, std::uint32_t column) {
  return Common::Error::WithSyntaxPosition(site, kXmlParseFailed.Code,
                                           Common::GetMessage(kXmlParseFailed.Entry), line, column);
}

Common::Error UnserializeXML(const std::u16string& text, std::unique_ptr<Xml::Tag>& tag) {
  const std::string utf8 = Common::ToUtf8(text);
  auto file = Common::MemoryFile::Create();
  file->Write(utf8.data(), utf8.size());
  if (file->Failed()) return file->TakeError();
  file->Rewind();
  std::unique_ptr<Xml::Tag> parsed;
  std::uint32_t line = 0, column = 0;
  if (!Xml::ParseDocument(parsed, *file, line, column)) return SyntaxError(VR_SITE, line, column);
  tag = std::move(parsed);
  return Common::NoError;
}

}  // namespace VirtualWareRaw
