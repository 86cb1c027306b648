// Any pattern with any arguments goes through the message format: the
// result is text or a variant failure, never a crash or a hang. The first
// bytes choose the arguments' types and values, the rest is the pattern.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "processor/format/message_format.h"

namespace {

Processor::Variant MakeArgument(std::uint8_t kind, std::uint64_t bits) {
  using Processor::Variant;
  switch (kind % 12) {
    case 0: return Variant::Date(static_cast<double>(bits % 4102444800000ull));
    case 1: {
      double d;
      std::memcpy(&d, &bits, sizeof d);
      return Variant(d);
    }
    case 2: return Variant(static_cast<int>(bits));
    case 3: return Variant(static_cast<unsigned>(bits));
    case 4: return Variant(static_cast<long long>(bits));
    case 5: return Variant(static_cast<unsigned long long>(bits));
    case 6: return Variant(u"C:\\some\\long/path with words\\file.vhdx");
    case 7: return Variant("identifier");
    case 8: return Variant((bits & 1) != 0);
    case 9: return Variant::Binary(&bits, sizeof bits);
    case 10: return Variant(Common::Error());
    default: return Variant();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::size_t count = data[0] % 5;
  std::size_t at = 1;
  std::vector<Processor::Variant> args;
  for (std::size_t i = 0; i < count && at + 9 <= size; ++i, at += 9) {
    std::uint64_t bits;
    std::memcpy(&bits, data + at + 1, sizeof bits);
    args.push_back(MakeArgument(data[at], bits));
  }
  std::vector<char16_t> pattern;
  for (; at + 1 < size; at += 2) pattern.push_back(static_cast<char16_t>(data[at] | data[at + 1] << 8));
  try {
    Processor::MessageFormatImpl format;
    char16_t buffer[64];
    format.Format(buffer, 64, pattern.data(), static_cast<std::int32_t>(pattern.size()), args.data(),
                  static_cast<int>(args.size()));
  } catch (const Processor::Variant::Error&) {
  }
  return 0;
}
