// A collector that keeps what it receives and says stop after a given count,
// and the code of a raised error.
#pragma once

#include <cstddef>
#include <limits>
#include <ostream>
#include <vector>

#include "vhd/collector.h"

namespace Vhd {

inline void PrintTo(const DiskArea& a, std::ostream* os) { *os << "{" << a.Offset << ", " << a.Size << "}"; }

namespace Testing {

template <typename T>
struct Recorder : Collector<T> {
  explicit Recorder(std::size_t stopAfter = std::numeric_limits<std::size_t>::max()) : stopAfter(stopAfter) {}
  bool Collect(const T& value) override {
    values.push_back(value);
    return values.size() < stopAfter;
  }
  std::size_t stopAfter;
  std::vector<T> values;
};

using Areas = std::vector<DiskArea>;

// The code of the error `fn` raises; 0 if none.
template <class Fn>
std::uint32_t CodeOf(Fn fn) {
  try {
    fn();
  } catch (const Common::Error& e) {
    return e.Code();
  }
  return 0;
}

}  // namespace Testing
}  // namespace Vhd
