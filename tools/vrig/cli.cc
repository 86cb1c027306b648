#include "cli.h"

#include <unistd.h>

#include <cstdio>

#include <algorithm>

namespace vrig {

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

int Info(const Module& module, const std::vector<std::string>& args) {
  if (!args.empty()) throw UsageError{"info takes no arguments"};
  Processor::AutoRef<VirtualWareRaw::SafeVirtualServer> server;
  Check(module.OpenServer(server));
  auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(server);
  std::vector<std::u16string> names;
  Check(properties->GetPropertyNames(names));
  for (const auto& name : names)
    std::printf("%s = %s\n", Narrow(name).c_str(), PropertyText(*properties, name).c_str());
  return 0;
}

}  // namespace vrig
