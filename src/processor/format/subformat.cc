#include "processor/format/subformat.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "common/assert.h"
#include "common/message_table.h"
#include "processor/break_iterator.h"
#include "processor/format/date_format.h"
#include "processor/format/error_format.h"
#include "processor/format/number_format_hex.h"
#include "processor/format/number_format_icu.h"
#include "processor/format/number_format_win.h"
#include "processor/format/size_format.h"
#include "processor/format/time_span_format.h"

namespace Processor {
namespace {

constexpr char16_t kQuoteUnit = 0xF800;
constexpr char16_t kAtMost = u'\u2264';
constexpr const char* kSourceFile = "processor\\format\\form_msi";

// A width or style number as atoi reads it.
int Atoi(const String& text) {
  std::string narrow;
  text.toUTF8String(narrow);
  return std::atoi(narrow.c_str());
}

bool IsNumber(Variant::Type type) {
  return type == Variant::TDouble || type == Variant::TLong || type == Variant::TULong ||
         type == Variant::TLong64 || type == Variant::TULong64;
}

double NumberOf(const Variant& v) {
  switch (v.GetType()) {
    case Variant::TLong: return v.GetLong();
    case Variant::TULong: return v.GetULong();
    case Variant::TLong64: return static_cast<double>(v.GetLong64());
    case Variant::TULong64: return static_cast<double>(v.GetULong64());
    default: return v.ToDouble();
  }
}

class SubformatSimple final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String*) override {
    switch (v.GetType()) {
      case Variant::TDate:
        if (!date_) date_ = DateFormat::CreateDateTime(0);
        date_->Format(out, v.GetDate());
        return;
      case Variant::TDouble:
      case Variant::TLong:
      case Variant::TULong:
      case Variant::TLong64:
      case Variant::TULong64:
        if (!number_) number_ = std::make_unique<NumberFormatWin>();
        number_->Format(out, v, 0);
        return;
      case Variant::TString: out += v.GetString(); return;
      case Variant::TInterface: out += NameOf(v); return;
      case Variant::TBinary: out += u"<binary data>"; return;
      case Variant::TIdentifier: out += String::fromUTF8(v.GetIdentifier()); return;
      case Variant::TBool: out += v.GetBool() ? u"true" : u"false"; return;
      case Variant::TError: {
        String text;
        ErrorFormat::Create()->Format(text, v.GetError());
        out += text;
        return;
      }
      case Variant::TEmpty: out += u"<void>"; return;
      default: out += u"<unknown>"; return;
    }
  }

 private:
  static String NameOf(const Variant& v) {
    AutoRef<PropertyHolder> holder = v.GetInterface<PropertyHolder>();
    if (!holder) return u"<unknown interface>";
    AutoRef<Property> name = holder->GetProperty(u"Name");
    if (!name) return u"<unknown interface>";
    Variant value;
    name->GetValue(value);
    return value.GetString();
  }

  std::unique_ptr<DateFormat> date_;
  std::unique_ptr<NumberFormatWin> number_;
};

class SubformatNumber final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    const String& style = segments[SEGMENT_STYLE];
    std::unique_ptr<NumberFormat> format;
    if (style == u"integer") format = std::make_unique<NumberFormatICU>(segments[SEGMENT_EXTRA]);
    else if (style == u"hex") format = std::make_unique<NumberFormatHEX>(16);
    else if (style == u"simple") format = std::make_unique<NumberFormatHEX>(10);
    else format = std::make_unique<NumberFormatWin>();
    format->Format(out, v, 0);
  }
};

class SubformatDate final : public SubformatBase {
 public:
  explicit SubformatDate(DateFormat::Kind kind) : kind_(kind) {}

  void Format(const Variant& v, String& out, const String* segments) override {
    const String& s = segments[SEGMENT_STYLE];
    const int style = s == u"full" ? 3 : s == u"long" ? 2 : s == u"medium" ? 1 : 0;
    if (style != style_) format_.reset();
    style_ = style;
    double milliseconds = 0;
    switch (v.GetType()) {
      case Variant::TDate: milliseconds = v.GetDate(); break;
      case Variant::TDouble: milliseconds = v.GetDouble(); break;
      case Variant::TLong: milliseconds = v.GetLong() * 1000.0; break;  // seconds
      case Variant::TULong: milliseconds = v.GetULong() * 1000.0; break;
      case Variant::TLong64: milliseconds = static_cast<double>(v.GetLong64()); break;
      case Variant::TULong64: milliseconds = static_cast<double>(v.GetULong64()); break;
      case Variant::TString: out += v.GetString(); return;
      default:
        Common::Assert("false", kSourceFile, 560);
        out += u"<invalid date>";
        return;
    }
    if (!format_) format_ = DateFormat::Create(kind_, style_);
    format_->Format(out, milliseconds);
  }

 private:
  DateFormat::Kind kind_;
  int style_ = -1;
  std::unique_ptr<DateFormat> format_;
};

// The value a choice compares with its limits.
double ChoiceValue(const Variant& v) {
  const Variant::Type type = v.GetType();
  if (type == Variant::TDate) return v.GetDate();
  if (IsNumber(type)) return NumberOf(v);
  if (type == Variant::TBool) return v.GetBool() ? 1 : 0;
  if (type == Variant::TString) return v.GetString().length();
  Common::Assert("false", kSourceFile, 631);
  return 0;
}

// Reads a list of forms "limit relation text|..." and offers each to
// `select` until one gives text; the last is offered at the end.
template <class Select>
void WalkForms(const String& list, Select select) {
  String parts[3];
  int state = 0;
  bool quoting = false;
  const auto reset = [&] {
    for (String& p : parts) p.remove();
    state = 0;
  };
  for (std::int32_t i = 0; i < list.length(); ++i) {
    const char16_t c = list[i];
    if (c == kQuoteUnit) {
      quoting = !quoting;
      if (state == 1) state = 2;
      continue;
    }
    if (!quoting) {
      if (c == u' ' && state < 2) {
        if (state == 1) state = 2;
        continue;
      }
      if ((c == u'#' || c == u'<' || c == u'>' || c == kAtMost) && state < 2) {
        if (state == 1 && c == u'<') {
          state = 2;
          parts[2] += c;
        } else {
          state = 1;
          parts[1] += c;
        }
        continue;
      }
      if (c == u'|' && state > 0) {
        if (select(parts[0], parts[1], parts[2])) return;
        reset();
        continue;
      }
    }
    if (state == 1) state = 2;
    parts[state] += c;
  }
  select(parts[0], parts[1], parts[2]);
}

// The limit truncated to 32 bits; a text beyond that range (or no number)
// is held at the range's ends instead of making an undefined conversion.
std::int32_t Limit(const NumberFormatWin& number, const String& text) {
  std::int32_t position = 0;
  const double value = number.Parse(text, position);
  if (std::isnan(value)) return 0;
  return static_cast<std::int32_t>(std::clamp(value, -2147483648.0, 2147483647.0));
}

class SubformatChoice final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    const double value = ChoiceValue(v);
    WalkForms(segments[SEGMENT_STYLE], [&](const String& limitText, const String& relation, const String& text) {
      const double limit = Limit(number_, limitText);
      for (std::int32_t i = 0; i < relation.length(); ++i) {
        const char16_t r = relation[i];
        bool match = false;
        if (r == u'#' || r == kAtMost) match = value == limit;  // "≤" in its narrow sense: equal
        else if (r == u'<') match = value > limit;
        else if (r == u'>') match = value < limit;
        else Common::Assert("false", kSourceFile, 640);
        if (match) {
          out += text;
          return !text.isEmpty();
        }
      }
      return false;
    });
  }

 private:
  NumberFormatWin number_;
};

bool LanguageHasSimpleRule() {
  // The language block is narrow text; its first string is the rule.
  const char* info = reinterpret_cast<const char*>(Common::GetMessage(Common::Msg::LanguageInfo));
  return info && std::atoi(info) != 0;
}

}  // namespace

int ConcordIndex(double value, bool simpleRule) {
  if (simpleRule) return value == 1.0 ? 0 : 1;
  if (!std::isfinite(value) || value != std::floor(value)) return 1;
  // Modulo on the double: a whole value may lie beyond any integer type.
  const auto r = static_cast<long long>(std::fmod(std::fabs(value), 100.0));
  if (r >= 5 && r < 21) return 2;
  const long long d = r % 10;
  if (d == 1) return 0;
  if (d >= 2 && d <= 4) return 1;
  return 2;
}

namespace {

class SubformatConcord final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    const int index = ConcordIndex(ChoiceValue(v), LanguageHasSimpleRule());
    String fallback;
    bool matched = false;
    WalkForms(segments[SEGMENT_STYLE], [&](const String& limitText, const String&, const String& text) {
      if (matched) return true;
      if (Limit(number_, limitText) == index) {
        out += text;
        matched = true;
        return true;
      }
      fallback = text;
      return false;
    });
    if (!matched) out += fallback;
  }

 private:
  NumberFormatWin number_;
};

class SubformatEllipsis final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    String text;
    v.ToString(text);
    const int width = Atoi(segments[SEGMENT_STYLE]);
    if (width < 4 || text.length() <= width) {
      out += text;
      return;
    }
    std::int32_t cut = -1;
    if (std::unique_ptr<BreakIterator> words = CreateBreakIterator(kWordBreaks)) {
      words->SetText(text);
      while (words->IsValid() && words->Next()) {
        const auto at = static_cast<std::int32_t>(words->GetPosition());
        if (at > width - 3) break;
        cut = at;
      }
    }
    if (cut <= 0) cut = width - 3;
    out += String(text, 0, cut);
    out += u"...";
  }
};

class SubformatPathEllipsis final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String* segments) override {
    String text;
    v.ToString(text);
    const int width = Atoi(segments[SEGMENT_STYLE]);
    std::vector<std::int32_t> separators;
    for (std::int32_t i = 0; i < text.length() && separators.size() < 10; ++i)
      if (text[i] == u'\\' || text[i] == u'/') separators.push_back(i);
    const int count = static_cast<int>(separators.size());
    if (count < 3) {
      out += text;
      return;
    }
    const int last = count - 1;
    int k = count == 3 ? count - 1 : count - 2;
    String built;
    const auto tryHeads = [&](int tailAt, int from) {
      const String tail(text, separators[tailAt]);
      for (int i = from; i >= 0; --i) {
        built = String(text, 0, separators[i] + 1);
        built += u"...";
        built += tail;
        if (built.length() <= width) return true;
      }
      return false;
    };
    if (!tryHeads(k, k - 1) && k < last) tryHeads(last, last - 1);
    out += built;
  }
};

class SubformatTimeSpan final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String*) override {
    std::uint64_t milliseconds = 0;
    switch (v.GetType()) {
      case Variant::TDouble: {
        const double d = v.GetDouble();
        milliseconds = d > 0 && d < 1.8e19 ? static_cast<std::uint64_t>(d) : 0;
        break;
      }
      case Variant::TLong: milliseconds = static_cast<std::uint64_t>(static_cast<std::int64_t>(v.GetLong())); break;
      case Variant::TULong: milliseconds = v.GetULong(); break;
      case Variant::TLong64: milliseconds = static_cast<std::uint64_t>(v.GetLong64()); break;
      case Variant::TULong64: milliseconds = v.GetULong64(); break;
      default:
        Common::Assert("false", kSourceFile, 895);
        out += u"<invalid time span>";
        return;
    }
    if (!format_) format_ = TimeSpanFormat::Create();
    format_->Format(out, milliseconds, false);
  }

 private:
  std::unique_ptr<TimeSpanFormat> format_;
};

class SubformatSize final : public SubformatBase {
 public:
  void Format(const Variant& v, String& out, const String*) override {
    if (!format_) format_ = SizeFormat::Create();
    format_->Format(out, IsNumber(v.GetType()) ? NumberOf(v) : v.ToDouble());
  }

 private:
  std::unique_ptr<SizeFormat> format_;
};

}  // namespace

std::unique_ptr<SubformatBase> CreateSubformatSimple() { return std::make_unique<SubformatSimple>(); }

std::unique_ptr<SubformatBase> CreateSubformat(const String& keyword) {
  if (keyword == u"number") return std::make_unique<SubformatNumber>();
  if (keyword == u"date") return std::make_unique<SubformatDate>(DateFormat::kDate);
  if (keyword == u"time") return std::make_unique<SubformatDate>(DateFormat::kTime);
  if (keyword == u"date_time") return std::make_unique<SubformatDate>(DateFormat::kDateTime);
  if (keyword == u"choice") return std::make_unique<SubformatChoice>();
  if (keyword == u"concord") return std::make_unique<SubformatConcord>();
  if (keyword == u"error") return CreateSubformatError();
  if (keyword == u"size") return std::make_unique<SubformatSize>();
  if (keyword == u"ellipsis") return std::make_unique<SubformatEllipsis>();
  if (keyword == u"path_ellipsis") return std::make_unique<SubformatPathEllipsis>();
  if (keyword == u"time_span") return std::make_unique<SubformatTimeSpan>();
  return nullptr;
}

}  // namespace Processor
