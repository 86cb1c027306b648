// Build-time generator of message tables.
//
// Reads a human-readable message source (one entry a line: number, name,
// text) and writes the binary table: total size, entry count, one
// self-relative 32-bit distance per entry, then NUL-terminated UTF-16LE
// texts. It can also write that table as a C++ array (the compiled-in
// English table) and a header of named entry numbers.
//
//   msgtable SOURCE [--cpp OUT.cc] [--header OUT.h] [--binary OUT.msg]
//            [--names-from REFERENCE]
//
// --names-from checks a translation against the reference source: both
// hold the same entries under the same names. A translation that lacks one
// is refused, because the catalogue that replaces the English table would
// show an empty text where English has one.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr uint32_t kEntryCount = 1698;

struct Entry {
  uint32_t number = 0;
  std::string name;
  bool narrow = false;
  std::vector<uint8_t> bytes;  // encoded text with its terminator(s)
  int line = 0;
};

[[noreturn]] void Fail(const std::string& where, const std::string& what) {
  std::cerr << where << ": " << what << "\n";
  std::exit(1);
}

std::string Unescape(const std::string& text, const std::string& where) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    if (++i == text.size()) Fail(where, "dangling backslash");
    switch (text[i]) {
      case 'n': out += '\n'; break;
      case 'r': out += '\r'; break;
      case 't': out += '\t'; break;
      case '\\': out += '\\'; break;
      case 's': out += ' '; break;  // a space that survives trimming
      default: Fail(where, std::string("unknown escape \\") + text[i]);
    }
  }
  return out;
}

void AppendUtf16(const std::string& utf8, std::vector<uint8_t>& out,
                 const std::string& where) {
  auto put = [&out](uint32_t unit) {
    out.push_back(static_cast<uint8_t>(unit & 0xFF));
    out.push_back(static_cast<uint8_t>(unit >> 8));
  };
  for (size_t i = 0; i < utf8.size();) {
    const auto c = static_cast<uint8_t>(utf8[i]);
    uint32_t cp = 0;
    size_t len = 0;
    if (c < 0x80) { cp = c; len = 1; }
    else if ((c & 0xE0) == 0xC0) { cp = c & 0x1F; len = 2; }
    else if ((c & 0xF0) == 0xE0) { cp = c & 0x0F; len = 3; }
    else if ((c & 0xF8) == 0xF0) { cp = c & 0x07; len = 4; }
    else Fail(where, "invalid UTF-8");
    if (i + len > utf8.size()) Fail(where, "truncated UTF-8");
    for (size_t k = 1; k < len; ++k) {
      const auto cc = static_cast<uint8_t>(utf8[i + k]);
      if ((cc & 0xC0) != 0x80) Fail(where, "invalid UTF-8");
      cp = (cp << 6) | (cc & 0x3F);
    }
    i += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(0xD800 + (cp >> 10));
      put(0xDC00 + (cp & 0x3FF));
    } else {
      put(cp);
    }
  }
  put(0);
}

std::map<uint32_t, Entry> ReadSource(const std::string& path) {
  std::ifstream in(path);
  if (!in) Fail(path, "cannot open");
  std::map<uint32_t, Entry> entries;
  std::set<std::string> names;
  std::string line;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    const std::string where = path + ":" + std::to_string(lineNo);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    std::istringstream fields(line);
    Entry e;
    std::string number;
    fields >> number >> e.name;
    if (e.name.empty()) Fail(where, "expected: number name text");
    char* end = nullptr;
    const unsigned long n = std::strtoul(number.c_str(), &end, 10);
    if (*end != '\0' || n >= kEntryCount) Fail(where, "bad entry number " + number);
    e.number = static_cast<uint32_t>(n);
    e.line = lineNo;
    std::string text;
    std::getline(fields, text);
    const size_t start = text.find_first_not_of(" \t");
    text = start == std::string::npos ? std::string() : text.substr(start);
    static const std::string kNarrow = "narrow:";
    if (text.compare(0, kNarrow.size(), kNarrow) == 0) {
      // A block of narrow strings, each NUL-terminated, ended by an empty one.
      e.narrow = true;
      std::string rest = text.substr(kNarrow.size());
      size_t pos = 0;
      while (true) {
        const size_t bar = rest.find('|', pos);
        const std::string part = Unescape(rest.substr(pos, bar - pos), where);
        e.bytes.insert(e.bytes.end(), part.begin(), part.end());
        e.bytes.push_back(0);
        if (bar == std::string::npos) break;
        pos = bar + 1;
      }
      e.bytes.push_back(0);
      while (e.bytes.size() % 2) e.bytes.push_back(0);
    } else {
      AppendUtf16(Unescape(text, where), e.bytes, where);
    }
    if (entries.count(e.number)) Fail(where, "entry " + number + " given twice");
    if (!names.insert(e.name).second) Fail(where, "name " + e.name + " given twice");
    entries.emplace(e.number, std::move(e));
  }
  return entries;
}

std::vector<uint8_t> BuildTable(const std::map<uint32_t, Entry>& entries) {
  const uint32_t textsStart = 8 + 4 * kEntryCount;
  std::vector<uint8_t> table(textsStart, 0);
  auto put32 = [&table](size_t at, uint32_t v) {
    for (int k = 0; k < 4; ++k) table[at + k] = static_cast<uint8_t>(v >> (8 * k));
  };
  // All entries without a text share one empty string.
  const uint32_t emptyAt = textsStart;
  table.push_back(0);
  table.push_back(0);
  for (uint32_t i = 0; i < kEntryCount; ++i) {
    const uint32_t field = 8 + 4 * i;
    auto it = entries.find(i);
    if (it == entries.end()) {
      put32(field, emptyAt - field);
      continue;
    }
    const auto at = static_cast<uint32_t>(table.size());
    table.insert(table.end(), it->second.bytes.begin(), it->second.bytes.end());
    put32(field, at - field);
  }
  while (table.size() % 4) table.push_back(0);
  put32(0, static_cast<uint32_t>(table.size()));
  put32(4, kEntryCount);
  return table;
}

void WriteCpp(const std::string& path, const std::vector<uint8_t>& table) {
  std::ofstream out(path);
  out << "// Generated by msgtable from the message source. Do not edit.\n"
         "#include <cstdint>\n\n"
         "namespace Common {\n"
         "alignas(8) extern const std::uint8_t kEnglishMessageTable[] = {";
  for (size_t i = 0; i < table.size(); ++i) {
    if (i % 16 == 0) out << "\n   ";
    out << " " << static_cast<unsigned>(table[i]) << ",";
  }
  out << "\n};\n}  // namespace Common\n";
  if (!out) Fail(path, "cannot write");
}

void WriteHeader(const std::string& path, const std::map<uint32_t, Entry>& entries) {
  std::ostringstream text;
  text << "// Generated by msgtable from the message source. Do not edit.\n"
         "// Entry numbers of the message table, by name.\n"
         "#pragma once\n#include <cstdint>\n\n"
         "namespace Common::Msg {\n"
         "inline constexpr std::uint32_t kEntryCount = " << kEntryCount << ";\n";
  for (const auto& [number, e] : entries)
    text << "inline constexpr std::uint32_t " << e.name << " = " << number << ";\n";
  text << "}  // namespace Common::Msg\n";
  // A change of texts alone leaves the header as it was, so that the build
  // does not recompile everything that names a message.
  std::ifstream in(path, std::ios::binary);
  if (in && std::string(std::istreambuf_iterator<char>(in), {}) == text.str()) return;
  std::ofstream out(path);
  out << text.str();
  if (!out) Fail(path, "cannot write");
}

void WriteBinary(const std::string& path, const std::vector<uint8_t>& table) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(table.data()),
            static_cast<std::streamsize>(table.size()));
  if (!out) Fail(path, "cannot write");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) Fail("msgtable", "usage: msgtable SOURCE [--cpp F] [--header F] [--binary F] [--names-from F]");
  const std::string source = argv[1];
  std::string cpp, header, binary, reference;
  for (int i = 2; i + 1 < argc; i += 2) {
    const std::string opt = argv[i];
    if (opt == "--cpp") cpp = argv[i + 1];
    else if (opt == "--header") header = argv[i + 1];
    else if (opt == "--binary") binary = argv[i + 1];
    else if (opt == "--names-from") reference = argv[i + 1];
    else Fail("msgtable", "unknown option " + opt);
  }
  const auto entries = ReadSource(source);
  if (!reference.empty()) {
    const auto ref = ReadSource(reference);
    for (const auto& [number, e] : entries) {
      auto it = ref.find(number);
      if (it == ref.end() || it->second.name != e.name || it->second.narrow != e.narrow)
        Fail(source + ":" + std::to_string(e.line),
             "entry " + std::to_string(number) + " " + e.name + " does not match the reference");
    }
    for (const auto& [number, e] : ref)
      if (!entries.count(number))
        Fail(source, "entry " + std::to_string(number) + " " + e.name + " of " + reference +
                         " is missing from the translation");
  }
  const auto table = BuildTable(entries);
  if (!cpp.empty()) WriteCpp(cpp, table);
  if (!header.empty()) WriteHeader(header, entries);
  if (!binary.empty()) WriteBinary(binary, table);
  return 0;
}
