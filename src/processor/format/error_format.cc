#include "processor/format/error_format.h"

#include "common/assert.h"
#include "common/error_format.h"
#include "processor/format/number_format_hex.h"
#include "processor/format/number_format_win.h"
#include "vellumrig/error_text.h"

namespace Processor {
namespace {

String Text(const std::u16string& text) { return String(text); }

String Hex(std::uint64_t value) {
  String out;
  NumberFormatHEX(16).Format(out, Variant(static_cast<unsigned long long>(value)), 0);
  return out;
}

class SubformatError final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    if (!VR_ASSERT(v.GetType() == Variant::TError)) return;
    const Common::Error error = v.GetError();
    const String& style = segments[SEGMENT_STYLE];
    if (style == u"full") {
      out += Text(Common::FullText(error));
    } else if (style == u"code") {
      out += u"0x";
      out += Hex(error.Code());
    } else if (style == u"tag") {
      out += u"0x";
      out += Hex(error.Site().Hash);
    } else if (style == u"message") {
      out += Text(Common::ErrorMessageText(error));
    } else if (style == u"field") {
      std::string name;
      segments[SEGMENT_EXTRA].toUTF8String(name);
      out += Text(Common::ErrorFieldValue(error, name.c_str(), false));
    }
  }
};

std::u16string LocalDecimal(std::uint64_t value) {
  String out;
  NumberFormatWin().Format(out, Variant(static_cast<unsigned long long>(value)), 0);
  return out.ToU16();
}

}  // namespace

std::unique_ptr<ErrorFormat> ErrorFormat::Create() { return std::make_unique<ErrorFormatImpl>(); }

void ErrorFormatImpl::Format(String& out, const Common::Error& error) { out = Text(Common::FullText(error)); }

std::unique_ptr<SubformatBase> CreateSubformatError() { return std::make_unique<SubformatError>(); }

void InstallLocalErrorNumbers() { Common::SetDecimalFormatter(&LocalDecimal); }

}  // namespace Processor
