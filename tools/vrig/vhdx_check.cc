// vrig vhdx check: a container's structures judged, reported the way
// qemu-img check reports, and with --repair the safe fixes made.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "vhdx/check/check.h"
#include "vhdx/check/repair.h"
#include "vhdx_access.h"
#include "vhdx_commands.h"

namespace vrig {
namespace {

// The exit codes, as the README tells them.
constexpr int kClean = 0;
constexpr int kCorrupt = 2;
constexpr int kRepairable = 3;

Vhdx::CheckReport Check(const std::string& path) {
  Place place = PlaceOf(path, true);
  std::unique_ptr<i_file> file = place.Folder->OpenFile(place.Name, kOpenRead);
  if (!file) throw Failure(place.Folder->TakeError());
  return Vhdx::CheckContainer(dynamic_cast<ri_file&>(*file));
}

std::string Plural(std::uint64_t n, const char* one, const char* many) {
  return std::to_string(n) + " " + (n == 1 ? one : many);
}

void PrintFindings(const Vhdx::CheckReport& report) {
  for (const Vhdx::Finding& f : report.Findings)
    std::printf("%s: %s\n", f.Class == Vhdx::FindingClass::Corruption ? "ERROR" : "Repairable", f.Text.c_str());
}

int Print(const Vhdx::CheckReport& report, bool repairing) {
  PrintFindings(report);
  std::uint64_t errors = 0, repairable = 0;
  for (const Vhdx::Finding& f : report.Findings) ++(f.Class == Vhdx::FindingClass::Corruption ? errors : repairable);
  if (report.Findings.empty()) std::printf("No errors were found on the image.\n");
  if (errors)
    std::printf("\n%s found on the image.\nData may be corrupted, or further writes to the image may corrupt it.\n",
                Plural(errors, "error was", "errors were").c_str());
  if (repairable)
    std::printf("\n%s found on the image; %s.\n",
                Plural(repairable, "repairable inconsistency was", "repairable inconsistencies were").c_str(),
                repairing                ? "repairing it here is not safe"
                : repairable == 1 ? "'vrig vhdx check --repair' repairs it"
                                  : "'vrig vhdx check --repair' repairs them");
  if (report.Blocks)
    std::printf("%llu/%llu = %.2f%% allocated\n", static_cast<unsigned long long>(report.Allocated),
                static_cast<unsigned long long>(report.Blocks),
                100.0 * static_cast<double>(report.Allocated) / static_cast<double>(report.Blocks));
  return errors ? kCorrupt : repairable ? kRepairable : kClean;
}

bool AnyRepairable(const Vhdx::CheckReport& report) {
  for (const Vhdx::Finding& f : report.Findings)
    if (f.Class == Vhdx::FindingClass::Repairable) return true;
  return false;
}

}  // namespace

int VhdxCheck(std::vector<std::string> args) {
  const bool repair = TakeFlag(args, "--repair");
  NeedArgs(args, 1, "vrig vhdx check <file> [--repair]");
  const std::string& path = args[0];
  if (!repair) return Print(Check(path), false);

  {
    // Locked before the check, so that what the repair acts on is what was
    // found: no other writer can move a bitmap in between.
    Place place = PlaceOf(path, false);
    std::unique_ptr<i_file> file = place.Folder->OpenFile(place.Name, kOpenReadWrite);
    if (!file) throw Failure(place.Folder->TakeError());
    const Vhdx::CheckReport report = Vhdx::CheckContainer(dynamic_cast<ri_file&>(*file));
    if (!AnyRepairable(report)) return Print(report, false);
    PrintFindings(report);
    for (const std::string& line : Vhdx::RepairContainer(dynamic_cast<rio_file&>(*file), report))
      std::printf("Repaired: %s\n", line.c_str());
  }
  std::printf("\nThe image after the repair:\n");
  return Print(Check(path), true);
}

}  // namespace vrig
