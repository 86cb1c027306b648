#include "common/assert.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "common/stack_walk.h"

// The routine must work when little else does: plain runtime calls, fixed
// buffers, and no allocation except for the stack text of the event sink.

namespace Common {
namespace {

constexpr int kTextSize = 540;
constexpr int kMaxFrames = 32;
constexpr int kSkippedFrames = 2;  // AssertPolicy and Assert themselves
constexpr char kTitle[] = "Kelvara runtime check failure";

enum LogTarget : long { kTargetStdout = -1, kTargetStderr = -2, kTargetFile = -3 };

std::atomic<bool> g_policyRead{false};
std::atomic<int> g_policy{kAssertDefaultPolicy};
std::atomic<long> g_target{kTargetStderr};
std::FILE* g_logFile = nullptr;
std::atomic<AssertSink> g_sink{nullptr};
std::atomic<bool> g_noTerminal{false};

void CloseLogFile() {
  if (!g_logFile) return;
  g_target.store(kTargetStderr);
  std::fclose(g_logFile);
  g_logFile = nullptr;
}

void OpenLogTarget() {
  const char* name = std::getenv("KELVARA_SAFE_ASSERT_LOGFILE");
  if (!name) return;
  if (std::strcmp(name, "stdout") == 0) {
    g_target.store(kTargetStdout);
  } else if (std::strcmp(name, "stderr") == 0) {
    g_target.store(kTargetStderr);
  } else if (!g_logFile) {
    // "e": the descriptor must not leak into programs the host starts.
    if (std::FILE* file = std::fopen(name, "ae")) {
      g_logFile = file;
      g_target.store(kTargetFile);
      std::atexit(CloseLogFile);
    }
  }
}

int TokenBit(const char* token) {
  static constexpr struct {
    const char* Name;
    int Bit;
  } kTokens[] = {{"break", kAssertBreak}, {"debug", kAssertDebug}, {"log", kAssertLog},
                 {"event", kAssertEvent}, {"msgbox", kAssertMsgBox}, {"abort", kAssertAbort},
                 {"stack", kAssertStack}};
  for (const auto& t : kTokens)
    if (std::strcmp(token, t.Name) == 0) return t.Bit;
  return 0;
}

int ReadPolicy() {
  const char* value = std::getenv("KELVARA_SAFE_ASSERT");
  if (!value || !*value) return kAssertDefaultPolicy;
  // Anywhere in the text, "0x" drops the first two characters.
  const char* digits = std::strstr(value, "0x") || std::strstr(value, "0X") ? value + 2 : value;
  if (*digits) {
    char* end = nullptr;
    const unsigned long number = std::strtoul(digits, &end, 16);
    if (*end == '\0' && number != 0) {
      const int policy = static_cast<int>(number);
      if (policy & kAssertLog) OpenLogTarget();
      return policy;
    }
  }
  char copy[128];
  std::strncpy(copy, value, sizeof copy - 1);
  copy[sizeof copy - 1] = '\0';
  int policy = 0;
  char* rest = copy;
  while (char* token = strtok_r(rest, " ", &rest)) {
    const int bit = TokenBit(token);
    // An unknown word turns assertions off; later words cannot undo that.
    policy = bit ? policy | bit : kAssertOff;
    if (bit == kAssertLog) OpenLogTarget();
  }
  return policy;
}

bool DebuggerAttached() {
  const int fd = ::open("/proc/self/status", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char status[4096];
  const ssize_t n = ::read(fd, status, sizeof status - 1);
  ::close(fd);
  if (n <= 0) return false;
  status[n] = '\0';
  const char* tracer = std::strstr(status, "TracerPid:");
  return tracer && std::strtol(tracer + 10, nullptr, 10) != 0;
}

// The debugger's output channel. Linux has none of its own: the text goes to
// standard error while a debugger is attached, and nowhere otherwise.
void DebugOutput(const char* text) {
  if (!DebuggerAttached()) return;
  std::fprintf(stderr, "%.539s\n", text);
  std::fflush(stderr);
}

void LogOutput(const char* text) {
  std::FILE* stream = nullptr;
  switch (g_target.load()) {
    case kTargetStdout: stream = stdout; break;
    case kTargetStderr: stream = stderr; break;
    case kTargetFile: stream = g_logFile; break;
  }
  if (!stream) return;
  std::fprintf(stream, "%s\n", text);
  std::fflush(stream);
}

struct StackOutput {
  int Policy;
  char* Gathered;  // frames for the event sink, line feeds between them
  std::size_t Length;
  std::size_t Capacity;
};

bool OnFrame(int frame, const char* text, void* user) {
  auto& out = *static_cast<StackOutput*>(user);
  if (frame < kSkippedFrames) return true;
  if (out.Policy & kAssertDebug) DebugOutput(text);
  if (out.Policy & kAssertLog) LogOutput(text);
  if ((out.Policy & kAssertEvent) && g_sink.load()) {
    const std::size_t need = out.Length + std::strlen(text) + 2;
    if (need > out.Capacity) {
      std::size_t capacity = out.Capacity;
      while (capacity < need) capacity += 1024;
      char* grown = static_cast<char*>(std::realloc(out.Gathered, capacity));
      if (!grown) return false;
      out.Gathered = grown;
      out.Capacity = capacity;
    }
    if (out.Length) out.Gathered[out.Length++] = '\n';
    std::strcpy(out.Gathered + out.Length, text);
    out.Length += std::strlen(text);
  }
  return true;
}

__attribute__((always_inline)) inline void WalkForAssertion(int policy) {
  StackOutput out{policy, static_cast<char*>(std::malloc(1024)), 0, 1024};
  if (!out.Gathered) out.Capacity = 0;
  WalkStack(OnFrame, &out, kMaxFrames);
  if (AssertSink sink = g_sink.load(); sink && (policy & kAssertEvent) && out.Length) sink(5, 0, 27, out.Gathered);
  std::free(out.Gathered);
}

const char* LastChars(const char* text, std::size_t count) {
  const std::size_t length = std::strlen(text);
  return length > count ? text + length - count : text;
}

enum Answer { kAnswerAbort = 3, kAnswerRetry = 4, kAnswerIgnore = 5 };

// Asks on the controlling terminal. Without one, as with a missing facility,
// the answer is "Retry", and no terminal is looked for again.
int AskUser(const char* expression, const char* file, int line) {
  char program[4096];
  const ssize_t n = ::readlink("/proc/self/exe", program, sizeof program - 1);
  program[n > 0 ? n : 0] = '\0';
  char text[kTextSize];
  const int length = std::snprintf(
      text, sizeof text,
      "Assertion failed!\n\nProgram: %s\nFile: %s\nLine: %i\n\nExpression: %s\n\n"
      "(Press Retry to debug the application)",
      LastChars(program, 60), LastChars(file ? file : "", 60), line, LastChars(expression, 60));
  if (length < 0 || length >= kTextSize) return kAnswerRetry;
  if (g_noTerminal.load()) return kAnswerRetry;
  const int tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (tty < 0) {
    g_noTerminal.store(true);
    return kAnswerRetry;
  }
  char prompt[kTextSize + 128];
  const int size = std::snprintf(prompt, sizeof prompt, "%s\n\n%s\n\nAbort, Retry or Ignore? [a/r/i] ",
                                 kTitle, text);
  if (::write(tty, prompt, static_cast<std::size_t>(size)) < 0) {
    ::close(tty);
    return kAnswerRetry;
  }
  char reply[64];
  const ssize_t got = ::read(tty, reply, sizeof reply);
  ::close(tty);
  const char first = got > 0 ? reply[0] : '\0';
  if (first == 'a' || first == 'A') return kAnswerAbort;
  if (first == 'r' || first == 'R') return kAnswerRetry;
  return kAnswerIgnore;
}

int BreakOrAbort(int policy) {
  if (DebuggerAttached()) {
    ::raise(SIGTRAP);
    return 0;
  }
  if (policy & kAssertAbort) std::abort();
  return 1;
}

}  // namespace

int GetAssertPolicy() noexcept {
  // A race here only reads the environment twice.
  if (!g_policyRead.load(std::memory_order_acquire)) {
    g_policy.store(ReadPolicy(), std::memory_order_relaxed);
    g_policyRead.store(true, std::memory_order_release);
  }
  return g_policy.load(std::memory_order_relaxed);
}

void SetAssertSink(AssertSink sink) noexcept { g_sink.store(sink); }

__attribute__((noinline)) int AssertPolicy(const char* expression, const char* file, int line,
                                           const char* text) noexcept {
  const int policy = GetAssertPolicy();
  if (policy == kAssertOff) return 0;
  if (text) {
    if (policy & kAssertDebug) DebugOutput(text);
    if (policy & kAssertLog) LogOutput(text);
    if (AssertSink sink = g_sink.load(); sink && (policy & kAssertEvent)) sink(5, 0, 27, text);
  }
  if ((policy & kAssertStack) && (policy & (kAssertDebug | kAssertLog | kAssertEvent)))
    WalkForAssertion(policy);
  if ((policy & kAssertMsgBox) && expression) {
    const int answer = AskUser(expression, file, line);
    if (answer == kAnswerIgnore) return 0;
    if (answer == kAnswerAbort) std::abort();
    return BreakOrAbort(policy);
  }
  if (!(policy & kAssertBreak)) {
    if (policy & kAssertAbort) std::abort();
    return 1;
  }
  return BreakOrAbort(policy);
}

__attribute__((noinline)) int Assert(const char* expression, const char* file, int line) noexcept {
  char text[kTextSize];
  const int n = std::snprintf(text, sizeof text, "Assertion failed: %s, file %s, line %d", expression,
                              file, line);
  const int result = AssertPolicy(expression, file, line, n >= 0 && n < kTextSize ? text : nullptr);
  // Keeps this frame on the stack, so that the walk skips exactly its own two.
  __asm__ volatile("" ::: "memory");
  return result;
}

}  // namespace Common
