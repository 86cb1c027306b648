// vrig: the command-line host of libvellumrig.so.
//
// It loads the module with dlopen like any host and works only through the
// module's interfaces. Errors are printed as their full text with the chain
// of causes, and the exit status is non-zero.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "module.h"

namespace {

using Processor::AutoRef;
using VirtualWareRaw::wstring;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr char kUsage[] =
    "usage: vrig <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  info      print the server's properties, one 'Name = value' a line\n"
    "  help      print this text\n";

struct Failure {
  Common::Error Error;
};

void Check(const Common::Error& error) {
  if (error) throw Failure{error};
}

std::string Narrow(const wstring& text) { return Common::ToUtf8(text); }

// A property in its single form, or its list form joined by ", ".
std::string PropertyText(VirtualWareRaw::PropertySet& properties, const wstring& name) {
  wstring value;
  Common::Error single = properties.GetProperty(name, value);
  if (!single) return Narrow(value);
  std::vector<wstring> values;
  if (properties.GetProperty(name, values)) throw Failure{single};
  std::string joined;
  for (const auto& v : values) joined += (joined.empty() ? "" : ", ") + Narrow(v);
  return joined;
}

int Info(const vrig::Module& module) {
  AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  Check(module.OpenServer(server));
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
  std::vector<wstring> names;
  Check(properties->GetPropertyNames(names));
  for (const auto& name : names)
    std::printf("%s = %s\n", Narrow(name).c_str(), PropertyText(*properties, name).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  const std::string command = argv[1];
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  try {
    if (command == "info" && argc == 2) {
      vrig::Module module;
      return Info(module);
    }
    std::fprintf(stderr, "vrig: unknown command or wrong arguments: %s\n\n%s",
                 command.c_str(), kUsage);
    return kExitUsage;
  } catch (const Failure& failure) {
    std::fprintf(stderr, "vrig: %s\n", Common::ToUtf8(Common::FullText(failure.Error)).c_str());
  } catch (const Common::Error& error) {
    std::fprintf(stderr, "vrig: %s\n", Common::ToUtf8(Common::FullText(error)).c_str());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vrig: %s\n", e.what());
  }
  return kExitFailure;
}
