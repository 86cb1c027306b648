// vrig vm: machines on disk, through the module's interfaces.
#include <cstdio>

#include "cli.h"

namespace vrig {
namespace {

using Processor::AutoRef;
using VirtualWareRaw::SafeVM;

AutoRef<SafeVM> OpenMachine(Session& session, const std::string& vmc) {
  AutoRef<SafeVM> vm;
  Check(session.Server->GetRegisteredVM(Absolute(vmc), vm));
  return vm;
}

std::string Property(const AutoRef<SafeVM>& vm, const char16_t* name) {
  return PropertyText(*Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm), name);
}

// Changes go to the file when the machine is closed; a refusal there is the
// command's failure.
void CloseForWriting(const AutoRef<SafeVM>& vm) {
  Check(Processor::QueryInterface<VirtualWareRaw::SafeVMAccess>(vm)->Close());
}

void Need(const std::vector<std::string>& args, std::size_t count, const char* form) {
  if (args.size() != count + 1) throw UsageError{std::string("usage: vrig vm ") + form};
}

}  // namespace

int Vm(const Module& module, const std::vector<std::string>& args) {
  if (args.empty()) throw UsageError{"vm needs a command"};
  const std::string& what = args[0];
  Session session(module);
  if (what == "create") {
    Need(args, 2, "create <storage> <name>");
    AutoRef<SafeVM> vm;
    Check(session.Server->CreateVM(Absolute(args[1]), Wide(args[2]), 0, vm));
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else if (what == "show") {
    Need(args, 1, "show <vmc>");
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    auto properties = Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm);
    std::vector<std::u16string> names;
    Check(properties->GetPropertyNames(names));
    for (const auto& name : names)
      std::printf("%s = %s\n", Narrow(name).c_str(), PropertyText(*properties, name).c_str());
  } else if (what == "set") {
    Need(args, 3, "set <vmc> <property> <value>");
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    Check(Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm)->SetProperty(Wide(args[2]),
                                                                                 Wide(args[3])));
    CloseForWriting(vm);
  } else if (what == "rename") {
    Need(args, 2, "rename <vmc> <new name>");
    AutoRef<SafeVM> vm = OpenMachine(session, args[1]);
    Check(Processor::QueryInterface<VirtualWareRaw::PropertySet>(vm)->SetProperty(u"Name",
                                                                                 Wide(args[2])));
    CloseForWriting(vm);
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else if (what == "rm") {
    Need(args, 1, "rm <vmc>");
    Check(session.Server->RemoveVM(Absolute(args[1])));
  } else if (what == "find") {
    Need(args, 2, "find <storage> <name>");
    auto workstation = Processor::QueryInterface<VirtualWareRaw::VirtualWorkstation>(session.Server);
    AutoRef<VirtualWareRaw::SafeVMCollection> found;
    Check(workstation->GetRegisteredVMs(Absolute(args[1]), Common::Credentials{}, Wide(args[2]), found));
    std::uint32_t count = 0;
    Check(found->GetCount(count));
    if (count == 0) {
      std::fprintf(stderr, "vrig: no machine '%s' in '%s'\n", args[2].c_str(), args[1].c_str());
      return 1;
    }
    AutoRef<SafeVM> vm;
    Check(found->GetItem(0, vm));
    std::printf("%s\n", Property(vm, u"ID").c_str());
  } else {
    throw UsageError{"unknown vm command: " + what};
  }
  return 0;
}

}  // namespace vrig
