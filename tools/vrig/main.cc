// vrig: the command-line host of libvellumrig.so.
//
// The info and vm commands load the module with dlopen like any host and
// work only through its interfaces, with the POSIX folder of "/" as the
// server's root. The vhdx commands use the container engine linked into
// vrig, since the module exports nothing for single containers.
// A failure prints one line per cause (with -v the full text of the chain)
// and exits 1; a mistake in the command line prints one line and exits 2.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "help.h"
#include "common/logging_bind.h"
#include "common/trace.h"
#include "track_commands.h"
#include "vhdx_commands.h"
#include "vellumrig/version.h"
#include "xml_commands.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// "--trace <level>" before the command: the level for the engine linked in
// here and for the loaded module's lines. Without it vrig's
// output stays its own: the logging library is told to drop every line.
bool TakeTraceOption(std::vector<std::string>& words) {
  if (words.empty() || words[0] != "--trace") {
    ::setenv("VELLUMRIG_LOGGING", "off", 1);
    return true;
  }
  if (words.size() < 2) return false;
  char* end = nullptr;
  const long level = std::strtol(words[1].c_str(), &end, 10);
  if (words[1].empty() || *end != '\0' || level < -1000 || level > 1000) return false;
  Common::SetTraceLevel(static_cast<int>(level));
  // The loaded module keeps its own level; the logging library applies this one to it.
  ::setenv("VELLUMRIG_LOGGING_LEVEL", words[1].c_str(), 1);
  Logging::RegisterLoggingSink();
  words.erase(words.begin(), words.begin() + 2);
  return true;
}

// "--name=value" becomes "--name" "value", so that every option takes
// both forms and the commands see one.
std::vector<std::string> SplitOptions(int argc, char** argv) {
  std::vector<std::string> words;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    const std::size_t equals = word.find('=');
    if (word.starts_with("--") && equals != std::string::npos && equals > 2) {
      words.push_back(word.substr(0, equals));
      words.push_back(word.substr(equals + 1));
    } else {
      words.push_back(word);
    }
  }
  return words;
}

// A descriptor of 0 to 2 that the caller left closed would be taken by the
// first file vrig opens: a container opened as descriptor 0 would then be
// read as standard input, or written by what goes to standard output.
void GuardStandardDescriptors() {
  for (int fd = 0; fd <= 2; ++fd)
    if (::fcntl(fd, F_GETFD) == -1) {
      const int opened = ::open("/dev/null", O_RDWR);
      if (opened < 0) std::_Exit(kExitFailure);
      if (opened != fd) {
        ::dup2(opened, fd);
        ::close(opened);
      }
    }
}

bool TakeWord(std::vector<std::string>& words, const char* a, const char* b) {
  const auto at = std::find_if(words.begin(), words.end(), [&](const std::string& w) { return w == a || w == b; });
  if (at == words.end()) return false;
  words.erase(at);
  return true;
}

int Dispatch(const std::vector<std::string>& words) {
  const std::string command = words[0];
  const std::vector<std::string> args(words.begin() + 1, words.end());
  if (command == "help") {
    vrig::PrintHelp(args);
    return 0;
  }
  if (command == "info") {
    vrig::Module module;
    return vrig::Info(module, args);
  }
  if (command == "vm") {
    vrig::Module module;
    return vrig::Vm(module, args);
  }
  if (command == "vhdx") return vrig::VhdxCommand(args);
  if (command == "track") return vrig::TrackCommand(args);
  if (command == "xml") return vrig::XmlCommand(args);
  throw vrig::UsageError{"unknown command '" + command + "'"};
}

}  // namespace

int main(int argc, char** argv) {
  GuardStandardDescriptors();
  std::vector<std::string> words = SplitOptions(argc, argv);
  const bool verbose = TakeWord(words, "-v", "--verbose");
  // A failed internal assertion prints a line and a stack by default, which
  // reads as a crash next to the error it leads to. vrig sends it to the
  // trace sink (seen with --trace) unless -v or the user chose otherwise.
  if (!verbose) ::setenv("KELVARA_SAFE_ASSERT", "event", 0);
  if (!TakeTraceOption(words)) {
    std::fprintf(stderr, "vrig: --trace takes a level, a whole number; see 'vrig --help'\n");
    return kExitUsage;
  }
  if (!words.empty() && words[0] == "--version") {
    std::printf("vrig %s\n", VELLUMRIG_VERSION);
    return 0;
  }
  if (TakeWord(words, "--help", "-h")) {
    vrig::PrintHelp(words);
    return 0;
  }
  if (words.empty()) {
    std::fprintf(stderr, "vrig: no command given; see 'vrig --help'\n");
    return kExitUsage;
  }
  auto print = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
  try {
    return Dispatch(words);
  } catch (const vrig::UsageError& usage) {
    std::fprintf(stderr, "vrig: %s; see '%s'\n", usage.Text.c_str(), vrig::HelpHint(words).c_str());
    return kExitUsage;
  } catch (const vrig::Failure& failure) {
    if (verbose)
      print("vrig: " + (failure.Context.empty() ? "" : failure.Context + ": ") +
            Common::ToUtf8(Common::FullText(failure.Error)));
    else
      for (const std::string& line : vrig::FailureLines(failure)) print(line);
  } catch (const Common::Error& error) {
    if (verbose) print("vrig: " + Common::ToUtf8(Common::FullText(error)));
    else
      for (const std::string& line : vrig::FailureLines(vrig::Failure(error))) print(line);
  } catch (const std::exception& e) {
    print(std::string("vrig: ") + e.what());
  }
  return kExitFailure;
}
