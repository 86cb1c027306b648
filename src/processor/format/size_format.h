// Processor::SizeFormat: a size in bytes with a unit ("512 bytes",
// "1.5 GB"), and sizes read back from such texts ("10 KB", "10kb").
// Module-internal; the variant's text conversions and the message format's
// "size" arguments use it.
//
// Units step by 1024; their names are the catalogue's texts, so a German
// catalogue writes " Bytes".
#pragma once

#include <cstdint>
#include <memory>

#include "vellumrig/string.h"

namespace Processor {

enum DiskSizeUnit {
  DSU_BYTE = 0,
  DSU_KB = 1,
  DSU_MB = 2,
  DSU_GB = 3,
  DSU_TB = 4,
  DSU__SIZE = 5,  // no unit
};

class SizeFormat {
 public:
  virtual ~SizeFormat() = default;

  // The largest unit the size reaches, one fraction digit at most, in the
  // user's local number form; whole bytes below 1 KB.
  virtual void Format(String& out, double bytes) const = 0;
  // The number (local form) and an optional unit after it; without a unit
  // `defaultUnit` stands, and DSU__SIZE as the default makes a size without
  // unit 0. `position` ends after what was read.
  virtual double Parse(const String& text, std::int32_t& position,
                       DiskSizeUnit defaultUnit = DSU_BYTE) const = 0;

  static std::unique_ptr<SizeFormat> Create();
};

}  // namespace Processor
