// What every vrig command shares: the module, failures, and text helpers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "module.h"
#include "vellumrig/vellumrig.h"

namespace vrig {

// A failure reported by the module or the engine. `Context` is what the
// user asked for, in their words ("cannot open 'x.vhdx'"): main prints it
// before the causes, or the full text of the chain with -v.
struct Failure {
  explicit Failure(Common::Error error, std::string context = {})
      : Error(std::move(error)), Context(std::move(context)) {}
  Common::Error Error;
  std::string Context;
};

// A mistake in the command line; main prints it on one line with where to
// find help, and exits 2.
struct UsageError {
  std::string Text;
};

// Runs `step`; a failure in it gets `context` as its meaning for the user,
// unless a deeper step gave it one.
template <class Step>
decltype(auto) InContext(const std::string& context, Step&& step) {
  try {
    return step();
  } catch (Failure& failure) {
    if (failure.Context.empty()) failure.Context = context;
    throw;
  } catch (const Common::Error& error) {
    throw Failure(error, context);
  }
}

// The lines main prints for a failure without -v: the context with the
// outermost cause that says more than it, then one line per further cause.
std::vector<std::string> FailureLines(const Failure& failure);

// Refuses `args` unless it is `count` words, none an unknown option, with a
// one-line usage error that ends in `usage`.
void NeedArgs(const std::vector<std::string>& args, std::size_t count, const std::string& usage);

// Removes `flag` from `args`; whether it was there.
bool TakeFlag(std::vector<std::string>& args, const char* flag);

inline void Check(const Common::Error& error) {
  if (error) throw Failure{error};
}

inline std::string Narrow(const std::u16string& text) { return Common::ToUtf8(text); }
inline std::u16string Wide(const std::string& text) { return Common::FromUtf8(text); }

// An absolute form of a path from the command line: relative ones are taken
// from the current folder, because the module's root is "/".
std::u16string Absolute(const std::string& path);

// The server with "/" as its root folder, which stays alive with it.
struct Session {
  explicit Session(const Module& module);
  std::unique_ptr<rio_dir> Root;
  Processor::AutoRef<VirtualWareRaw::SafeVirtualServer> Server;
};

// A property in its single form, or its list form joined by ", ".
std::string PropertyText(VirtualWareRaw::PropertySet& properties, const std::u16string& name);

// A property value from the command line in the form the module takes;
// throws std::runtime_error for one the machine cannot hold.
std::string ModuleValue(const std::string& property, const std::string& value);
// "ide" or "scsi" as the module's bus type.
std::uint32_t BusType(const std::string& name);

// An object's properties, 'Name = value' a line (through `shown` when
// given), or with `json` one object: property names as keys, lists as arrays.
void PrintProperties(VirtualWareRaw::PropertySet& properties, bool json,
                     std::string (*shown)(const std::u16string& name, const std::string& text) = nullptr);

int Info(const Module& module, std::vector<std::string> args);
int Vm(const Module& module, std::vector<std::string> args);
// `args` follow "vm disk".
int VmDisk(Session& session, const std::vector<std::string>& args);
// `args` follow "vm plan".
int VmPlan(Session& session, std::vector<std::string> args);

}  // namespace vrig
