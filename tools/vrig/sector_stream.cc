#include "sector_stream.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "vhdx_access.h"

namespace vrig {

void SectorsToStdout(std::uint64_t first, std::uint64_t count, std::uint32_t sectorSize,
                     const std::function<void(std::uint64_t, std::uint64_t, void*)>& read) {
  std::vector<std::uint8_t> buffer(kTransferBytes);
  const std::uint64_t step = kTransferBytes / sectorSize;
  for (std::uint64_t done = 0; done < count;) {
    const std::uint64_t n = std::min(step, count - done);
    read(first + done, n, buffer.data());
    if (std::fwrite(buffer.data(), sectorSize, n, stdout) != n) throw std::runtime_error("cannot write the output");
    done += n;
  }
  if (std::fflush(stdout) != 0) throw std::runtime_error("cannot write the output");
}

void StdinToSectors(std::uint64_t first, std::uint32_t sectorSize,
                    const std::function<void(std::uint64_t, std::uint64_t, const void*)>& write) {
  std::vector<std::uint8_t> buffer(kTransferBytes);
  for (std::uint64_t sector = first;;) {
    std::size_t got = 0;
    while (got < buffer.size()) {
      const std::size_t n = std::fread(buffer.data() + got, 1, buffer.size() - got, stdin);
      if (n == 0) break;
      got += n;
    }
    if (std::ferror(stdin)) throw std::runtime_error("cannot read the input");
    const std::uint64_t whole = got / sectorSize;
    if (whole) {
      write(sector, whole, buffer.data());
      sector += whole;
    }
    if (got % sectorSize)
      throw std::runtime_error("the input ends in " + std::to_string(got % sectorSize) +
                               " bytes that make no whole sector of " + std::to_string(sectorSize) +
                               "; they were not written");
    if (got < buffer.size()) return;
  }
}

}  // namespace vrig
