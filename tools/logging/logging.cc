// libvellumrig_logging.so: where the trace lines of the module and of vrig
// end up. Each line goes to the systemd journal, with its level as the
// priority and its facility, code and tag as fields; without a journal, or
// when sending fails, it goes to standard error as one line.
//
// Environment, read once:
//   VELLUMRIG_LOGGING=off        drop every line
//   VELLUMRIG_LOGGING=stderr     standard error even with a journal
//   VELLUMRIG_JOURNAL_SOCKET     the journal's socket, whose absence means
//                                there is no journal (default
//                                /run/systemd/journal/socket)
//   VELLUMRIG_LOGGING_LEVEL      drop lines below this level, whatever the
//                                level of the module that sends them
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include "logging_api.h"

namespace {

enum class Destination { Off, Stderr, Journal };

Destination ChooseDestination() {
  const char* mode = std::getenv("VELLUMRIG_LOGGING");
  if (mode && std::strcmp(mode, "off") == 0) return Destination::Off;
  if (mode && std::strcmp(mode, "stderr") == 0) return Destination::Stderr;
  const char* socket = std::getenv("VELLUMRIG_JOURNAL_SOCKET");
  if (!socket || !*socket) socket = "/run/systemd/journal/socket";
  return ::access(socket, F_OK) == 0 ? Destination::Journal : Destination::Stderr;
}

Destination CurrentDestination() {
  static const Destination destination = ChooseDestination();
  return destination;
}

// Engine levels grow with severity: 2 is ordinary progress, 4 a failure
// reported, 5 a failed assertion.
int Priority(int level) {
  if (level <= 1) return LOG_DEBUG;
  switch (level) {
    case 2: return LOG_INFO;
    case 3: return LOG_NOTICE;
    case 4: return LOG_WARNING;
    case 5: return LOG_ERR;
    default: return LOG_CRIT;
  }
}

// Unpaired surrogates become U+FFFD: a line is never dropped for its text.
std::string Utf8(const char16_t* text) {
  std::string out;
  for (const char16_t* p = text; p && *p; ++p) {
    char32_t c = *p;
    if (c >= 0xD800 && c <= 0xDBFF && p[1] >= 0xDC00 && p[1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (p[1] - 0xDC00);
      ++p;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string Field(const char* name, const std::string& value) { return std::string(name) + "=" + value; }

bool SendToJournal(uint32_t tag, int level, uint32_t module, uint32_t code, const std::string& text,
                   const void* data, size_t size) {
  char number[32];
  std::string fields[7];
  int count = 0;
  fields[count++] = Field("MESSAGE", text);
  fields[count++] = Field("PRIORITY", std::to_string(Priority(level)));
  fields[count++] = Field("SYSLOG_IDENTIFIER", "vellumrig");
  fields[count++] = Field("VELLUMRIG_LEVEL", std::to_string(level));
  fields[count++] = Field("VELLUMRIG_FACILITY", std::to_string(module));
  std::snprintf(number, sizeof number, "0x%X", code);
  fields[count++] = Field("VELLUMRIG_CODE", number);
  if (tag) fields[count++] = Field("VELLUMRIG_TAG", std::to_string(tag));
  iovec vectors[8];
  for (int i = 0; i < count; ++i) vectors[i] = {fields[i].data(), fields[i].size()};
  // Binary data: the journal takes any bytes in a field sent this way.
  std::string dataField;
  if (data && size) {
    dataField = "VELLUMRIG_DATA=";
    dataField.append(static_cast<const char*>(data), size);
    vectors[count++] = {dataField.data(), dataField.size()};
  }
  return sd_journal_sendv(vectors, count) >= 0;
}

void WriteToStderr(uint32_t tag, int level, uint32_t module, uint32_t code, const std::string& text,
                   const void* data, size_t size) {
  char head[96];
  std::snprintf(head, sizeof head, "vellumrig: level %d, facility %u, code 0x%X", level, module, code);
  std::string line = head;
  if (tag) line += ", tag " + std::to_string(tag);
  line += ": " + text;
  static const char kHex[] = "0123456789abcdef";
  if (data && size) {
    line += " [";
    for (size_t i = 0; i < size; ++i) {
      const unsigned char b = static_cast<const unsigned char*>(data)[i];
      line += kHex[b >> 4];
      line += kHex[b & 15];
    }
    line += "]";
  }
  line += '\n';
  // One write, so that lines of several threads do not interleave.
  for (size_t done = 0; done < line.size();) {
    const ssize_t n = ::write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
}

// Each copy of the engine in a process (the module, a program's own) keeps
// its own level; this one applies to them all.
int LowestLevel() {
  static const int lowest = [] {
    const char* text = std::getenv("VELLUMRIG_LOGGING_LEVEL");
    return text && *text ? std::atoi(text) : INT32_MIN;
  }();
  return lowest;
}

void Emit(uint32_t tag, int level, uint32_t module, uint32_t code, const char16_t* text, const void* data,
          size_t size) {
  const Destination destination = CurrentDestination();
  if (destination == Destination::Off || level < LowestLevel()) return;
  try {
    const std::string utf8 = Utf8(text);
    if (destination == Destination::Journal && SendToJournal(tag, level, module, code, utf8, data, size))
      return;
    WriteToStderr(tag, level, module, code, utf8, data, size);
  } catch (...) {
    // Out of memory: the line is lost, the caller is not disturbed.
  }
}

void TraceOp(const LoggingTracer*, uint32_t tag, int level, uint32_t module, uint32_t code,
             const char16_t* text) {
  Emit(tag, level, module, code, text, nullptr, 0);
}

void TraceDataOp(const LoggingTracer*, uint32_t tag, int level, uint32_t module, uint32_t code,
                 const char16_t* text, const void* data, size_t size) {
  Emit(tag, level, module, code, text, data, size);
}

void TraceErrorOp(const LoggingTracer*, uint32_t tag, int level, uint32_t code, const char16_t* text) {
  Emit(tag, level, code >> 16, code, text, nullptr, 0);
}

constexpr LoggingTracer kTracer{sizeof(LoggingTracer), TraceOp, TraceDataOp, TraceErrorOp};

}  // namespace

extern "C" __attribute__((visibility("default"))) const LoggingTracer* Logging_GetTracer(void) {
  return &kTracer;
}
