#include "common/flat_error.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <new>
#include <set>
#include <string_view>
#include <utility>

#include "common/error_record.h"
#include "vellumrig/error_text.h"

namespace Common {
namespace {

// Layout of a flat record behind the head: the Text slot, then a table of
// 32-bit offsets (the name list, then each field's value in name order),
// then the wide text, the comma-separated name list, and each value behind
// its type byte.
constexpr std::size_t kTextSlot = sizeof(ErrorRecord);
constexpr std::size_t kTableAt = kTextSlot + 8;

std::uint32_t TableEntry(const ErrorRecord* r, std::size_t i) {
  std::uint32_t v;
  std::memcpy(&v, reinterpret_cast<const std::uint8_t*>(r) + kTableAt + 4 * i, 4);
  return v;
}

const char* NameList(const ErrorRecord* r) {
  return reinterpret_cast<const char*>(r) + TableEntry(r, 0);
}

// The type byte of the named field, or null.
const std::uint8_t* FindValue(const ErrorRecord* r, const char* name) {
  if (!name) return nullptr;
  const std::string_view wanted(name);
  std::string_view list(NameList(r));
  for (std::size_t i = 0; !list.empty(); ++i) {
    const std::size_t comma = list.find(',');
    if (list.substr(0, comma) == wanted)
      return reinterpret_cast<const std::uint8_t*>(r) + TableEntry(r, 1 + i);
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return nullptr;
}

void FlatDestroy(ErrorRecord* r) { delete[] reinterpret_cast<std::uint8_t*>(r); }

ErrorRecord* FlatClone(const ErrorRecord* r) {
  auto* block = new (std::nothrow) std::uint8_t[r->Size];
  if (!block) return nullptr;
  std::memcpy(block, r, r->Size);
  auto* copy = reinterpret_cast<ErrorRecord*>(block);
  copy->RefCount = 1;
  copy->Reason = nullptr;
  return copy;
}

void FlatGetText(const ErrorRecord* r, std::u16string& text) {
  std::uint64_t ref;
  std::memcpy(&ref, reinterpret_cast<const std::uint8_t*>(r) + kTextSlot, 8);
  const auto* s = static_cast<const char16_t*>(ResolveString(r, ref));
  text = s ? s : u"";
}

std::uint64_t FlatGetNumber(const ErrorRecord* r, const char* name) {
  const std::uint8_t* v = FindValue(r, name);
  if (!v || *v != 'N') return 0;
  std::uint64_t n;
  std::memcpy(&n, v + 1, 8);
  return n;
}

const char* FlatGetNarrowString(const ErrorRecord* r, const char* name) {
  const std::uint8_t* v = FindValue(r, name);
  if (v && *v == 'A') return reinterpret_cast<const char*>(v + 1);
  if (!v && name && std::strcmp(name, "$module") == 0) return kModuleTag;
  return nullptr;
}

const char16_t* FlatGetWideString(const ErrorRecord* r, const char* name) {
  const std::uint8_t* v = FindValue(r, name);
  return v && *v == 'W' ? reinterpret_cast<const char16_t*>(v + 1) : nullptr;
}

const char* FlatGetFieldNames(const ErrorRecord* r) { return NameList(r); }

const ErrorRecordOps kFlatOps{FlatDestroy,        FlatClone,         FlatGetText,
                              FlatGetNumber,      FlatGetNarrowString, FlatGetWideString,
                              FlatGetFieldNames};

// A growing byte buffer that reports allocation failure instead of throwing.
class DynamicBuffer {
 public:
  ~DynamicBuffer() { delete[] data_; }
  bool Reserve(std::size_t needed) {
    if (needed <= capacity_) return true;
    const std::size_t capacity = std::max(capacity_ + capacity_ / 2, needed);
    auto* grown = new (std::nothrow) std::uint8_t[capacity];
    if (!grown) return false;
    if (size_) std::memcpy(grown, data_, size_);
    delete[] data_;
    data_ = grown;
    capacity_ = capacity;
    return true;
  }
  bool Append(const void* bytes, std::size_t n) {
    if (!Reserve(size_ + n)) return false;
    std::memcpy(data_ + size_, bytes, n);
    size_ += n;
    return true;
  }
  bool Pad(std::size_t alignment, std::size_t offset = 0) {
    static const std::uint8_t zeros[8] = {};
    const std::size_t n = (alignment - (size_ + offset) % alignment) % alignment;
    return Append(zeros, n);
  }
  std::size_t Size() const { return size_; }
  std::uint8_t* Data() { return data_; }
  std::uint8_t* Release() { return std::exchange(data_, nullptr); }

 private:
  std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

struct ParsedField {
  std::string_view Name;
  char Type;
  std::string_view Text;
  std::uint64_t Number;
};

// Reads a NUL-terminated string inside the stream; false without terminator.
bool ReadString(const std::uint8_t* bytes, std::size_t length, std::size_t& pos,
                std::string_view& out) {
  const auto* start = bytes + pos;
  const void* nul = std::memchr(start, 0, length - pos);
  if (!nul) return false;
  out = std::string_view(reinterpret_cast<const char*>(start),
                         static_cast<const std::uint8_t*>(nul) - start);
  pos += out.size() + 1;
  return true;
}

// Lays out one record; null when memory runs out.
ErrorRecord* BuildRecord(std::uint32_t code, const ErrorSite& site, std::string_view text,
                         const std::vector<ParsedField>& fields) {
  std::string names;
  for (const auto& f : fields) {
    if (!names.empty()) names += ',';
    names.append(f.Name);
  }
  const std::u16string wide = FromUtf8(text);
  DynamicBuffer buffer;
  const std::size_t tableSize = 4 * (1 + fields.size());
  ErrorRecord head{0, code, nullptr, &kFlatOps, site, 0};
  const std::uint64_t noText = 0;
  if (!buffer.Append(&head, sizeof head) || !buffer.Append(&noText, 8) ||
      !buffer.Reserve(kTableAt + tableSize))
    return nullptr;
  std::vector<std::uint8_t> table(tableSize, 0);
  if (!buffer.Append(table.data(), tableSize) || !buffer.Pad(2)) return nullptr;
  const std::uint64_t textAt = buffer.Size();
  if (!buffer.Append(wide.c_str(), 2 * (wide.size() + 1))) return nullptr;
  std::memcpy(buffer.Data() + kTextSlot, &textAt, 8);
  auto setEntry = [&buffer](std::size_t i, std::size_t offset) {
    const auto v = static_cast<std::uint32_t>(offset);
    std::memcpy(buffer.Data() + kTableAt + 4 * i, &v, 4);
  };
  setEntry(0, buffer.Size());
  if (!buffer.Append(names.c_str(), names.size() + 1)) return nullptr;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const ParsedField& f = fields[i];
    // Wide values start on an even offset, behind their type byte.
    if (f.Type == 'W' && !buffer.Pad(2, 1)) return nullptr;
    setEntry(1 + i, buffer.Size());
    if (!buffer.Append(&f.Type, 1)) return nullptr;
    bool ok = true;
    if (f.Type == 'N') {
      ok = buffer.Append(&f.Number, 8);
    } else if (f.Type == 'A') {
      ok = buffer.Append(f.Text.data(), f.Text.size()) && buffer.Append("", 1);
    } else {
      const std::u16string value = FromUtf8(f.Text);
      ok = buffer.Append(value.c_str(), 2 * (value.size() + 1));
    }
    if (!ok) return nullptr;
  }
  if (buffer.Size() > 0xFFFFFFFFu) return nullptr;
  const auto size = static_cast<std::uint32_t>(buffer.Size());
  std::memcpy(buffer.Data() + offsetof(ErrorRecord, Size), &size, 4);
  return reinterpret_cast<ErrorRecord*>(buffer.Release());
}

}  // namespace

const char* InternSiteString(const char* text) {
  if (!text) return nullptr;
  static auto* lock = new std::mutex;  // kept to process end, as the strings are
  static auto* strings = new std::set<std::string, std::less<>>;
  std::lock_guard<std::mutex> guard(*lock);
  try {
    return strings->emplace(text).first->c_str();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

Error ParseFlatError(const std::uint8_t* bytes, std::size_t length) {
  if (!bytes || length < 13 || bytes[0] != 1) return Error();
  std::vector<ErrorRecord*> records;
  std::size_t pos = 1;
  while (length - pos >= 12) {
    std::uint32_t code;
    std::memcpy(&code, bytes + pos, 4);
    if (code == 0) break;
    ErrorSite site{0, nullptr, nullptr, 0};
    std::memcpy(&site.Hash, bytes + pos + 4, 8);
    pos += 12;
    std::string_view text;
    if (!ReadString(bytes, length, pos, text)) break;
    std::vector<ParsedField> fields;
    bool complete = false;
    while (pos < length) {
      if (bytes[pos] == 0) {
        ++pos;
        complete = true;
        break;
      }
      ParsedField f{};
      // A comma in a name would shift the name list against the offsets.
      if (!ReadString(bytes, length, pos, f.Name) || pos >= length ||
          f.Name.find(',') != std::string_view::npos)
        break;
      f.Type = static_cast<char>(bytes[pos++]);
      if (f.Type == 'N') {
        if (length - pos < 8) break;
        std::memcpy(&f.Number, bytes + pos, 8);
        pos += 8;
      } else if (f.Type == 'A' || f.Type == 'W') {
        if (!ReadString(bytes, length, pos, f.Text)) break;
      } else {
        break;
      }
      if (f.Name == "$file" && f.Type == 'A')
        site.File = InternSiteString(std::string(f.Text).c_str());
      else if (f.Name == "$func" && f.Type == 'A')
        site.Function = InternSiteString(std::string(f.Text).c_str());
      else if (f.Name == "$line" && f.Type == 'N')
        site.Line = static_cast<std::uint32_t>(f.Number);
      else
        fields.push_back(f);
    }
    if (!complete) break;
    ErrorRecord* record = BuildRecord(code, site, text, fields);
    if (!record) break;
    records.push_back(record);
  }
  if (records.empty()) return Error();
  for (std::size_t i = 0; i + 1 < records.size(); ++i) {
    records[i]->Reason = records[i + 1];
    records[i + 1]->RefCount = 1;  // the reference of the record before it
  }
  records[0]->RefCount = 1;
  return Error::Adopt(records[0]);
}

std::vector<std::uint8_t> WriteFlatError(const std::vector<FlatRecord>& records) {
  std::vector<std::uint8_t> out{1};
  auto put = [&out](const void* p, std::size_t n) {
    const auto* b = static_cast<const std::uint8_t*>(p);
    out.insert(out.end(), b, b + n);
  };
  for (const auto& r : records) {
    put(&r.Code, 4);
    put(&r.SiteHash, 8);
    put(r.Text.c_str(), r.Text.size() + 1);
    for (const auto& f : r.Fields) {
      put(f.Name.c_str(), f.Name.size() + 1);
      put(&f.Type, 1);
      if (f.Type == 'N') put(&f.Number, 8);
      else put(f.Text.c_str(), f.Text.size() + 1);
    }
    out.push_back(0);
  }
  return out;
}

}  // namespace Common
