// vrig: the command-line host of libvellumrig.so.
//
// The info and vm commands load the module with dlopen like any host and
// work only through its interfaces, with the POSIX folder of "/" as the
// server's root. The vhdx commands use the container engine linked into
// vrig, since the module exports nothing for single containers.
// Errors are printed as their full text with the chain of causes, and the
// exit status is non-zero.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "common/logging_bind.h"
#include "common/trace.h"
#include "track_commands.h"
#include "vhdx_commands.h"
#include "xml_commands.h"

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

constexpr char kUsage[] =
    "usage: vrig [--trace <level>] <command> [arguments]\n"
    "\n"
    "--trace <level> shows the engine's trace lines at that level and above (0 all,\n"
    "2 the default, which includes log replay) in the systemd journal, or on\n"
    "standard error where there is none.\n"
    "\n"
    "commands:\n"
    "  info                              the server's properties, 'Name = value' a line\n"
    "  vm create <storage> <name> [--force]\n"
    "                                    make a machine; prints its .vmc path. An empty\n"
    "                                    storage (\"\") is the default machines folder; an\n"
    "                                    existing machine is kept unless --force\n"
    "  vm show <vmc>                     a machine's properties\n"
    "  vm set <vmc> <property> <value>   change Name, Memory (with a unit: 512M, 4G) or\n"
    "                                    FirmwareType (bios or efi); the others are read-only\n"
    "  vm rename <vmc> <new name>        rename folder and file; prints the new path\n"
    "  vm rm <vmc>                       remove the machine, and its folder when empty\n"
    "  vm find <storage> <name>          prints the machine's path when it is there\n"
    "  vm plan <storage> <name> [--memory <size>] [--create]\n"
    "          [--disk <ide|scsi>:<bus>:<slot>:<file.vhdx>:<size>]...\n"
    "                                    check a machine before it is made: prints what would\n"
    "                                    be made or every reason it cannot be, and writes\n"
    "                                    nothing; --create then makes it\n"
    "  vm disk add <vmc> <ide|scsi> <bus> <slot> <file> <size>[K|M|G|T]\n"
    "                                    a new disk in the slot; a bare name goes beside the\n"
    "                                    .vmc, and one without .vhdx gets it (and the older\n"
    "                                    format's size rules)\n"
    "  vm disk attach <vmc> <ide|scsi> <bus> <slot> <existing file>\n"
    "  vm disk list <vmc>                'bus bus:slot file' a line\n"
    "  vm disk rm <vmc> <file> [--delete]\n"
    "                                    take the disk out of the machine; --delete also\n"
    "                                    deletes its file\n"
    "  vm disk read <vmc> <file> <sector> <count>\n"
    "  vm disk write <vmc> <file> <sector>\n"
    "                                    sectors to standard output, or from standard input\n"
    "  vm disk meta <vmc> <file> [<guid> <flags> [--set <hex bytes>]]\n"
    "                                    the disk's raw metadata items: the keys, one item's\n"
    "                                    bytes in hexadecimal, or new bytes for it\n"
    "  vhdx create <file> <size>[K|M|G|T] [--sector-size 512|4096] [--tracker <db>]\n"
    "                                    a new dynamic container (4 MiB blocks; 512-byte sectors\n"
    "                                    unless told); an existing file is refused\n"
    "  vhdx info <file>                  type, geometry, write GUIDs, blocks, metadata, parents\n"
    "  vhdx read <file> <sector> <count> sectors to standard output\n"
    "  vhdx write <file> <sector> [--tracker <db>]\n"
    "                                    whole sectors from standard input\n"
    "  vhdx import <raw> <new vhdx> [--sector-size 512|4096] [--tracker <db>]\n"
    "                                    a raw image into a new container\n"
    "  vhdx export <vhdx> <new raw>      a container out to a new, sparse raw image\n"
    "  vhdx export <vhdx> <raw> --since <change-id|*> [--tracker <db>]\n"
    "                                    only the sectors changed since the ID, into an earlier\n"
    "                                    export of the same size; prints how many\n"
    "  vhdx changes <file> <change-id|*> [--tracker <db>]\n"
    "                                    changed sectors, 'first count' a line, then the total\n"
    "                                    (\"*\": all the data the chain holds)\n"
    "  vhdx rm <file> [--chain] [--force]\n"
    "                                    delete a container; --chain also its parents,\n"
    "                                    --force one that does not open\n"
    "  track start <db> <folder|file>    track what is there, kept in the database <db>\n"
    "  track id <db>                     prints the current change ID and closes its generation\n"
    "  track write <db> <file> <offset>  standard input into the file, through the tracker\n"
    "  track changes <db> <file> <id>    changed byte regions since <id>, \"start end\" a\n"
    "                                    line, or \"full\"\n"
    "  xml convert <in> <out> --binary|--text\n"
    "                                    a .vmc or any XML tag tree into the binary form or\n"
    "                                    back to text (as a .vmc is written); <out> must not exist\n"
    "  help                              this text\n"
    "\n"
    "Relative paths are taken from the current folder. import and export show a\n"
    "progress bar when standard error is a terminal and end with the rate there.\n"
    "--tracker names a database made by track start: containers are written\n"
    "through it, new ones are put on its record, and change IDs are its own.\n";

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

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> words = SplitOptions(argc, argv);
  if (!TakeTraceOption(words)) {
    std::fprintf(stderr, "vrig: --trace takes a level, a whole number\n\n%s", kUsage);
    return kExitUsage;
  }
  if (words.empty()) {
    std::fputs(kUsage, stderr);
    return kExitUsage;
  }
  const std::string command = words[0];
  const std::vector<std::string> args(words.begin() + 1, words.end());
  if (command == "help" || command == "--help" || command == "-h") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  try {
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
    throw vrig::UsageError{"unknown command: " + command};
  } catch (const vrig::UsageError& usage) {
    std::fprintf(stderr, "vrig: %s\n\n%s", usage.Text.c_str(), kUsage);
    return kExitUsage;
  } catch (const vrig::Failure& failure) {
    std::fprintf(stderr, "vrig: %s\n", Common::ToUtf8(Common::FullText(failure.Error)).c_str());
  } catch (const Common::Error& error) {
    std::fprintf(stderr, "vrig: %s\n", Common::ToUtf8(Common::FullText(error)).c_str());
  } catch (const std::exception& e) {
    std::fprintf(stderr, "vrig: %s\n", e.what());
  }
  return kExitFailure;
}
