// The vrig vhdx command family, which works through the engine linked into
// vrig. For tools/vrig only: main dispatches to VhdxCommand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vellumrig/file_tracker.h"

namespace vrig {

// `args` follow "vhdx": the subcommand and its arguments.
int VhdxCommand(const std::vector<std::string>& args);
// `args` follow "vhdx create".
int VhdxCreate(std::vector<std::string> args);
// `args` follow "vhdx check": exit 0 clean, 2 corruption, 3 repairable only.
int VhdxCheck(std::vector<std::string> args);
// `args` follow "vhdx info".
int VhdxInfo(std::vector<std::string> args);

// A raw image into a new dynamic container, and a container out to a new
// raw image; both skip zeros and report their rate on standard error.
// A raw image "-" is standard input, of `size` bytes at most (the disk's
// size), or standard output.
int Import(const std::string& raw, const std::string& vhdx, std::uint32_t sectorSize, std::uint64_t size);
int Export(const std::string& vhdx, const std::string& raw);
// An incremental backup: the sectors changed since `changeId` go into an
// earlier export of the same disk, which must be exactly the disk's size;
// nothing else in it is touched. IDs other than "*" need the tracker.
int ExportChanges(const std::string& vhdx, const std::string& raw, const std::string& changeId,
                  Host::TrackingHost* tracker);

// `args` follow "vhdx serve": nbdkit serves the file until it is stopped.
int VhdxServe(std::vector<std::string> args);

// Throws when `path` exists: vrig makes new files only.
void RefuseExisting(const std::string& path);

}  // namespace vrig
