#include "help.h"

#include <cstdio>

#include "vellumrig/version.h"

namespace vrig {
namespace {

struct Group {
  const char* Path;
  const char* Summary;
};

struct Command {
  const char* Path;
  const char* Synopsis;
  const char* Text;
};

constexpr Group kGroups[] = {
    {"vm", "machines: one folder each, with a .vmc file; through the module like any host"},
    {"vm disk", "the hard disks of a machine"},
    {"vhdx", "containers, through the engine linked into vrig"},
    {"track", "a file tracker: which byte regions of files changed since a change ID"},
    {"xml", "tag trees in text and binary form"},
};

constexpr Command kCommands[] = {
    {"info", "[--json]", "The server's properties, 'Name = value' a line."},
    {"vm create", "<storage> <name> [--force]",
     "Makes a machine and prints its .vmc path. An empty storage (\"\") is the\n"
     "default machines folder; an existing machine is kept unless --force."},
    {"vm list", "<storage> [--json]", "The machines in a storage folder: name and .vmc path, one a line."},
    {"vm show", "<vmc> [--json]", "A machine's properties."},
    {"vm set", "<vmc> <property> <value>",
     "Changes Name, Memory (with a unit: 512M, 4G) or FirmwareType (bios or efi);\n"
     "the others are read-only."},
    {"vm rename", "<vmc> <new name>", "Renames folder and file; prints the new path."},
    {"vm rm", "<vmc>", "Removes the machine, and its folder when empty."},
    {"vm find", "<storage> <name>", "Prints the machine's path when it is there."},
    {"vm plan", "<storage> <name> [--memory <size>] [--create] [--disk <ide|scsi>:<bus>:<slot>:<file.vhdx>:<size>]...",
     "Checks a machine before it is made: prints what would be made or every\n"
     "reason it cannot be, and writes nothing; --create then makes it."},
    {"vm disk add", "<vmc> <ide|scsi> <bus> <slot> <file> <size>[K|M|G|T]",
     "A new disk in the slot; a bare name goes beside the .vmc, and one without\n"
     ".vhdx gets it (and the older format's size rules)."},
    {"vm disk attach", "<vmc> <ide|scsi> <bus> <slot> <existing file>", "An existing disk into the slot."},
    {"vm disk list", "<vmc>", "The machine's disks, 'bus bus:slot file' a line."},
    {"vm disk rm", "<vmc> <file> [--delete]",
     "Takes the disk out of the machine; --delete also deletes its file."},
    {"vm disk read", "<vmc> <file> <sector> <count>", "Sectors to standard output."},
    {"vm disk write", "<vmc> <file> <sector>", "Sectors from standard input."},
    {"vm disk meta", "<vmc> <file> [<guid> <flags> [--set <hex bytes>]]",
     "The disk's raw metadata items: the keys, one item's bytes in hexadecimal,\n"
     "or new bytes for it."},
    {"vhdx create",
     "<file> <size>[K|M|G|T] [--fixed] [--block-size <size>] [--sector-size 512|4096] [--tracker <db>]\n"
     "       vrig vhdx create --parent <parent> <child> [--block-size <size>] [--tracker <db>]",
     "A new container: dynamic (blocks are allocated as they are written) unless\n"
     "--fixed (all of it allocated now), or a differencing child of <parent> that\n"
     "takes the parent's size and sectors and records where the parent is.\n"
     "Blocks are 4M (a child's: its parent's) unless told (1M to 256M, a power of\n"
     "two); sectors 512 bytes unless told. An existing file is refused."},
    {"vhdx info", "<file> [--json]",
     "Type, sizes, geometry, identifiers, blocks, metadata, parent locator and\n"
     "parents. A child whose parent is missing is shown all the same, with the\n"
     "parent it could not find."},
    {"vhdx check", "<file> [--repair]",
     "Checks headers, region tables, metadata, every block entry, sector bitmaps\n"
     "and the log. --repair fixes only what is safe and says what it did. Exit\n"
     "status: 0 clean, 1 the check could not run, 2 damage that may lose data,\n"
     "3 inconsistencies that --repair fixes."},
    {"vhdx read", "<file> <sector> <count>", "Sectors to standard output."},
    {"vhdx write", "<file> <sector> [--tracker <db>]", "Whole sectors from standard input."},
    {"vhdx import", "<raw|-> <new vhdx> [--size <size>] [--sector-size 512|4096] [--tracker <db>]",
     "A raw image into a new container; \"-\" reads it from standard input, which\n"
     "needs --size (the input may be shorter: the rest reads zeros)."},
    {"vhdx export", "<vhdx> <new raw|->\n"
                    "       vrig vhdx export <vhdx> <raw> --since <change-id|*> [--tracker <db>]",
     "A container out to a new, sparse raw image; \"-\" writes it to standard\n"
     "output. With --since, only the sectors changed since the ID go into an\n"
     "earlier export of the same size; prints how many."},
    {"vhdx changes", "<file> <change-id|*> [--tracker <db>]",
     "Changed sectors, 'first count' a line, then the total (\"*\": all the data\n"
     "the chain holds)."},
    {"vhdx serve", "<file> [--socket <path>] [--readonly]",
     "Serves the disk over NBD on a Unix socket until stopped (Ctrl-C), through\n"
     "nbdkit and the vellumrig plugin; prints the URI to connect to."},
    {"vhdx rm", "<file> [--chain] [--force]",
     "Deletes a container; --chain also its parents, --force one that does not open."},
    {"track start", "<db> <folder|file>", "Tracks what is there, kept in the database <db>."},
    {"track id", "<db>", "Prints the current change ID and closes its generation."},
    {"track write", "<db> <file> <offset>", "Standard input into the file, through the tracker."},
    {"track changes", "<db> <file> <id>", "Changed byte regions since <id>, \"start end\" a line, or \"full\"."},
    {"xml convert", "<in> <out> --binary|--text",
     "A .vmc or any XML tag tree into the binary form or back to text (as a .vmc\n"
     "is written); <out> must not exist."},
};

constexpr char kGlobal[] =
    "usage: vrig [-v] [--trace <level>] <command> [arguments]\n"
    "       vrig --version | --help | <group> --help | <group> <command> --help\n"
    "\n"
    "  -v, --verbose      on failure, the full text of every error: codes, fields, sites\n"
    "  --trace <level>    the engine's trace lines at that level and above (0 all, 2 log\n"
    "                     replay) in the systemd journal, or on standard error\n"
    "\n"
    "Options take '--name value' or '--name=value'. Relative paths are taken from the\n"
    "current folder. Exit status: 0 done, 1 failed, 2 a mistake in the command line.\n";

constexpr char kTail[] =
    "\n"
    "import and export show a progress bar when standard error is a terminal.\n"
    "--tracker names a database made by track start: containers are written through\n"
    "it, new ones are put on its record, and change IDs are its own.\n";

// The number of leading words of `words` that `path` ("vm disk add") is.
std::size_t Matches(const std::vector<std::string>& words, const std::string& path) {
  std::size_t count = 0, at = 0;
  while (at <= path.size()) {
    const std::size_t space = path.find(' ', at);
    const std::string word = path.substr(at, space == std::string::npos ? std::string::npos : space - at);
    if (count >= words.size() || words[count] != word) return 0;
    ++count;
    if (space == std::string::npos) break;
    at = space + 1;
  }
  return count;
}

const Command* FindCommand(const std::vector<std::string>& words) {
  for (const Command& c : kCommands)
    if (Matches(words, c.Path)) return &c;
  return nullptr;
}

const Group* FindGroup(const std::vector<std::string>& words) {
  const Group* best = nullptr;
  std::size_t depth = 0;
  for (const Group& g : kGroups) {
    const std::size_t n = Matches(words, g.Path);
    if (n > depth) best = &g, depth = n;
  }
  return best;
}

void PrintCommand(const Command& c, bool withText) {
  std::printf("  vrig %s %s\n", c.Path, c.Synopsis);
  if (!withText) return;
  std::string text = c.Text;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    std::printf("      %s\n", text.substr(at, end - at).c_str());
    if (end == std::string::npos) break;
    at = end + 1;
  }
}

}  // namespace

void PrintHelp(const std::vector<std::string>& words) {
  if (const Command* command = FindCommand(words)) {
    std::printf("usage:\n");
    PrintCommand(*command, true);
    return;
  }
  if (const Group* group = FindGroup(words)) {
    std::printf("vrig %s: %s\n\n", group->Path, group->Summary);
    const std::string prefix = std::string(group->Path) + " ";
    for (const Command& c : kCommands)
      if (std::string(c.Path).starts_with(prefix)) PrintCommand(c, true);
    return;
  }
  std::printf("vrig %s: the command-line host of libvellumrig\n\n%s\ncommands:\n", VELLUMRIG_VERSION, kGlobal);
  for (const Command& c : kCommands) PrintCommand(c, false);
  std::printf("\nMore on a group or command: vrig <group> --help, vrig <group> <command> --help.\n%s", kTail);
}

std::string HelpHint(const std::vector<std::string>& words) {
  if (const Command* command = FindCommand(words)) return std::string("vrig ") + command->Path + " --help";
  if (const Group* group = FindGroup(words)) return std::string("vrig ") + group->Path + " --help";
  return "vrig --help";
}

}  // namespace vrig
