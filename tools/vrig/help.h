// vrig's help: the overview, each group's commands and each command's
// text, all from one table, and the hint a usage slip ends with. For
// tools/vrig only.
#pragma once

#include <string>
#include <vector>

namespace vrig {

// Prints the help of the deepest group or command that `words` name (the
// words before "--help"), or the overview, to standard output.
void PrintHelp(const std::vector<std::string>& words);

// "vrig vhdx create --help" for words that start with a known command,
// "vrig vhdx --help" for a known group, else "vrig --help".
std::string HelpHint(const std::vector<std::string>& words);

}  // namespace vrig
