// What libvellumrig_host gives a host: folder objects over the POSIX file
// system, to hand to FileServicesClient::SetRootDir, and the default place
// of machines. Link the static library vellumrig_host to use it.
//
// The folders behave as folder.h describes, with these POSIX choices:
// - paths are UTF-16 in and UTF-8 on disk; '/' and '\' both separate, so
//   paths written on Windows (".\disk.vhdx", "sub\disk.vhdx") resolve;
// - a folder is named by its path and need not exist: OpenFolder,
//   OpenParentFolder and ".." work on paths alone (".." of "/" is "/"), and
//   Self tells whether the folder is there;
// - Enumerate lists entries sorted by name (byte order of their UTF-8), with
//   symbolic links taken as what they point to;
// - Rename never replaces an existing name (0x40013 instead);
// - files are opened close-on-exec, and each open holds an open-file-
//   description lock on the whole file, shared for reading and exclusive
//   for writing: a file another open (of this or any process, qemu's
//   included) holds against it is refused with 0x40017 "The file is in use
//   by another program."; CreateFile empties a file only once locked;
// - the IOCTL replace command (ReplaceCommand) renames over a file in one
//   step and puts the folder on disk;
// - the explicit Lock calls are flock locks besides, never waited for.
#pragma once

#include <memory>
#include <string>

#include "vellumrig/folder.h"

namespace Host {

// The environment variable that, when set and not empty, names the machines
// folder. A relative value is taken from the current folder.
inline constexpr char kMachinesFolderVariable[] = "VELLUMRIG_MACHINES";

// A folder object for `path`; a relative path is taken from the current
// folder. A read-only folder refuses every change (deleting, renaming,
// creating files or folders, opening a file for writing) with 0x4000C "The
// file is read-only." pending, and every folder it opens is read-only too.
// Null only when `path` is relative and the current folder cannot be found.
std::unique_ptr<rio_dir> OpenFolder(const std::u16string& path, bool readOnly = false);

// Where machines are kept by default, the folder that
// OpenSpecialFolder(kMachinesFolder) opens: $VELLUMRIG_MACHINES if set, else
// $XDG_DATA_HOME/vellumrig/machines (when that variable holds an absolute
// path), else $HOME/.local/share/vellumrig/machines (HOME from the user
// database when unset). Absolute, without a trailing separator; empty when
// no home can be found. This call only computes the path: OpenSpecialFolder
// creates the folder, with its parents, when it is missing (unless the
// folder object is read-only).
std::u16string DefaultMachinesFolder();

}  // namespace Host
