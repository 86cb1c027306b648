#include "processor/format/size_format.h"

#include <cmath>

#include "common/assert.h"
#include "common/message_table.h"
#include "processor/format/number_format_win.h"

namespace Processor {

namespace {

constexpr int DISK_SIZE_FORMAT_COUNT = DSU__SIZE;

constexpr double kFactors[DISK_SIZE_FORMAT_COUNT] = {
    1.0, 1024.0, 1024.0 * 1024, 1024.0 * 1024 * 1024, 1024.0 * 1024 * 1024 * 1024};

constexpr std::uint32_t kUnitEntries[DISK_SIZE_FORMAT_COUNT] = {
    Common::Msg::SizeUnitBytes, Common::Msg::SizeUnitKB, Common::Msg::SizeUnitMB,
    Common::Msg::SizeUnitGB, Common::Msg::SizeUnitTB};

class SizeFormatImpl final : public SizeFormat {
 public:
  SizeFormatImpl() {
    for (int unit = DSU_BYTE; unit < DSU__SIZE; ++unit) {
      const std::u16string_view text = Common::MessageText(kUnitEntries[unit]);
      String name(text.data(), static_cast<std::int32_t>(text.size()));
      name.trim();
      upper_[unit] = name;
      upper_[unit].toUpper();
    }
  }

  void Format(String& out, double bytes) const override {
    int unit = DSU_BYTE;
    while (unit + 1 < DSU__SIZE && std::fabs(bytes) >= kFactors[unit + 1]) ++unit;
    double value = bytes / kFactors[unit];
    if (unit != DSU_BYTE) {
      value = std::round(value * 10) / 10;
      // 1023.97 KB rounds to 1024 KB: that is 1 MB.
      if (std::fabs(value) >= 1024.0 && unit + 1 < DSU__SIZE) {
        ++unit;
        value = std::round(bytes / kFactors[unit] * 10) / 10;
      }
    }
    number_.FormatDouble(out, value, unit == DSU_BYTE ? 0 : 1);
    const std::u16string_view text = Common::MessageText(kUnitEntries[unit]);
    out.append(text.data(), 0, static_cast<std::int32_t>(text.size()));
  }

  double Parse(const String& text, std::int32_t& position,
               DiskSizeUnit defaultUnit) const override {
    String upper(text);
    upper.toUpper();
    position = 0;
    const double number = number_.Parse(upper, 0, position);
    if (number == 0.0 || position == 0) return number;
    std::int32_t at = position;
    while (at < upper.length() && upper.charAt(at) == u' ') ++at;
    int tmpDsu = DSU__SIZE;
    for (int unit = DSU__SIZE - 1; unit >= DSU_BYTE; --unit) {
      const String& name = upper_[unit];
      if (!name.isEmpty() && upper.compare(at, name.length(), name) == 0) {
        tmpDsu = unit;
        position = at + name.length();
        break;
      }
    }
    if (tmpDsu == DSU__SIZE) tmpDsu = defaultUnit;
    if (tmpDsu == DSU__SIZE) return 0.0;
    // A caller's default beyond the table must not index past it.
    if (!VR_ASSERT(DSU_BYTE <= tmpDsu && tmpDsu < DSU__SIZE)) return 0.0;
    return number * kFactors[tmpDsu];
  }

 private:
  NumberFormatWin number_;
  String upper_[DISK_SIZE_FORMAT_COUNT];
};

}  // namespace

std::unique_ptr<SizeFormat> SizeFormat::Create() { return std::make_unique<SizeFormatImpl>(); }

}  // namespace Processor
