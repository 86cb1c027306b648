// Small folder and text helpers of the provider: pending file errors made
// thrown errors, credentials for shares, the default machine folder, and
// path and name helpers. Module-internal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vellumrig/folder.h"
#include "vellumrig/string.h"

namespace VirtualWareRaw {

// Throws the pending error of `parent`; then, when `object` is null,
// 0x4000E "The operation is not supported."; then the object's own error.
void VerifyFileObject(file_object& parent, file_object* object);
void VerifyFileObject(file_object& parent, const dir_item* object);

// Hands the credentials for `path` to the folder. A folder that has no such
// command, or any failure, leaves the call silent: a wrong password shows at
// the next file operation.
void SetAccessCredentialsHelper(rio_dir& folder, const std::u16string& path,
                                const Common::Credentials& credentials);

// The folders where machines go by default: the root's special folder 143.
// A non-empty list is kept for the process.
std::vector<std::u16string> GetVMDefaultFolders(rio_dir& root);

bool FileExists(rio_dir& folder, const std::u16string& name);
bool PathExists(rio_dir& root, const std::u16string& path);
bool IsFolderEmpty(rio_dir& folder);
// Makes the folder and its missing parents; an empty error on success.
Common::Error CreateFolderChain(rio_dir& folder);

// Renames `from` over `to` within `folder`, replacing `to` when it is there.
// In one step where the folder can (its replace command); otherwise `to` is
// deleted first, and a stop in between leaves the text under `from`.
Common::Error ReplaceFile(rio_dir& folder, const std::u16string& from, const std::u16string& to);

// `text` when it is longer than `suffix` and ends in it, ignoring case;
// otherwise `text` followed by `suffix`.
std::u16string AddSuffix(const std::u16string& text, const std::u16string& suffix);
// The text after the last ".", or empty.
std::u16string GetExtension(const std::u16string& text);
std::u16string RemoveTrailingSeparators(std::u16string path, char16_t separator);

// Whether `error` or any of its causes has `code`.
bool ChainHolds(const Common::Error& error, std::uint32_t code);

}  // namespace VirtualWareRaw
