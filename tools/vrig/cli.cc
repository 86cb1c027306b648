#include "cli.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>

#include <algorithm>

#include "common/error_format.h"
#include "json.h"

namespace vrig {
namespace {

// Errors that only say "opening failed" around the reason: with a context
// from vrig they add nothing to it.
bool IsOpenWrapper(std::uint32_t code) {
  return code == 0x3C002C  // Failed to open VHDX file
         || code == 0x530016;  // Failed to open virtual machine
}

constexpr std::uint32_t kSystemError = 0xFFF0;
constexpr std::uint32_t kFileFacility = 0x0004;

}  // namespace

std::vector<std::string> FailureLines(const Failure& failure) {
  std::vector<std::pair<std::uint32_t, std::string>> causes;
  std::uint32_t outer = 0;
  for (Common::Error e = failure.Error; e; e = e.Reason()) {
    const std::uint32_t code = e.Code();
    // The system's words for the file error just given say it again.
    const bool repeated = code == kSystemError && (outer >> 16) == kFileFacility;
    outer = code;
    if (repeated) continue;
    std::string text = Narrow(Common::ErrorMessageText(e));
    if (text.empty()) {
      char hex[32];
      std::snprintf(hex, sizeof hex, "error 0x%X", code);
      text = hex;
    }
    if (std::none_of(causes.begin(), causes.end(), [&](const auto& c) { return c.second == text; }))
      causes.emplace_back(code, text);
  }
  if (causes.size() > 1 && !failure.Context.empty() && IsOpenWrapper(causes[0].first)) causes.erase(causes.begin());
  std::vector<std::string> texts;
  for (const auto& cause : causes) texts.push_back(cause.second);
  if (texts.empty()) texts.push_back("failed");
  std::vector<std::string> lines;
  for (std::size_t i = 0; i < texts.size(); ++i)
    lines.push_back(i ? "  " + texts[i]
                      : "vrig: " + (failure.Context.empty() ? std::string() : failure.Context + ": ") + texts[i]);
  return lines;
}

void NeedArgs(const std::vector<std::string>& args, std::size_t count, const std::string& usage) {
  for (const std::string& arg : args)
    if (arg.size() > 1 && arg[0] == '-' && !(arg.size() > 1 && std::isdigit(static_cast<unsigned char>(arg[1]))))
      throw UsageError{"unknown option " + arg + "; usage: " + usage};
  if (args.size() < count) throw UsageError{"missing arguments; usage: " + usage};
  if (args.size() > count) throw UsageError{"too many arguments; usage: " + usage};
}

bool TakeFlag(std::vector<std::string>& args, const char* flag) {
  const auto at = std::find(args.begin(), args.end(), flag);
  if (at == args.end()) return false;
  args.erase(at);
  return true;
}

std::u16string Absolute(const std::string& path) {
  if (!path.empty() && path[0] == '/') return Wide(path);
  std::string cwd(4096, '\0');
  if (!getcwd(cwd.data(), cwd.size())) return Wide(path);
  cwd.resize(cwd.find('\0'));
  return Wide(cwd + "/" + path);
}

Session::Session(const Module& module) : Root(Host::OpenFolder(u"/")) {
  Check(module.OpenServer(Server));
  Processor::QueryInterface<VirtualWareRaw::FileServicesClient>(Server)->SetRootDir(Root.get());
}

std::string PropertyText(VirtualWareRaw::PropertySet& properties, const std::u16string& name) {
  std::u16string value;
  Common::Error single = properties.GetProperty(name, value);
  if (!single) return Narrow(value);
  std::vector<std::u16string> values;
  if (properties.GetProperty(name, values)) throw Failure{single};
  std::string joined;
  for (const auto& v : values) joined += (joined.empty() ? "" : ", ") + Narrow(v);
  return joined;
}

void PrintProperties(VirtualWareRaw::PropertySet& properties, bool json,
                     std::string (*shown)(const std::u16string& name, const std::string& text)) {
  std::vector<std::u16string> names;
  Check(properties.GetPropertyNames(names));
  if (!json) {
    for (const auto& name : names) {
      const std::string text = PropertyText(properties, name);
      std::printf("%s = %s\n", Narrow(name).c_str(), (shown ? shown(name, text) : text).c_str());
    }
    return;
  }
  Json out;
  out.BeginObject();
  for (const auto& name : names) {
    out.Key(Narrow(name));
    std::u16string value;
    const Common::Error single = properties.GetProperty(name, value);
    if (!single) {
      out.String(Narrow(value));
      continue;
    }
    std::vector<std::u16string> values;
    if (properties.GetProperty(name, values)) throw Failure(single);
    out.BeginArray();
    for (const auto& v : values) out.String(Narrow(v));
    out.EndArray();
  }
  out.EndObject();
  std::fputs(out.Text().c_str(), stdout);
}

int Info(const Module& module, std::vector<std::string> args) {
  const bool json = TakeFlag(args, "--json");
  NeedArgs(args, 0, "vrig info [--json]");
  Processor::AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  Check(module.OpenServer(server));
  PrintProperties(*Processor::QueryInterface<VirtualWareRaw::PropertySet>(server), json);
  return 0;
}

}  // namespace vrig
