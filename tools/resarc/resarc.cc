// Build-time tool: appends the resource archive to the module file, followed
// by a footer that lets the module find it again:
//   [module][archive][archive length, 8 bytes little-endian]["VRIGRES1"]
//
//   resarc MODULE ARCHIVE
#include <cstdint>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: resarc MODULE ARCHIVE\n";
    return 2;
  }
  std::ifstream archive(argv[2], std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(archive)),
                                std::istreambuf_iterator<char>());
  if (!archive.eof() && !archive) {
    std::cerr << "resarc: cannot read " << argv[2] << "\n";
    return 1;
  }
  std::ofstream module(argv[1], std::ios::binary | std::ios::app);
  module.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::uint64_t length = bytes.size();
  char footer[16];
  for (int i = 0; i < 8; ++i) footer[i] = static_cast<char>(length >> (8 * i));
  const char magic[8] = {'V', 'R', 'I', 'G', 'R', 'E', 'S', '1'};
  for (int i = 0; i < 8; ++i) footer[8 + i] = magic[i];
  module.write(footer, sizeof footer);
  if (!module) {
    std::cerr << "resarc: cannot append to " << argv[1] << "\n";
    return 1;
  }
  return 0;
}
