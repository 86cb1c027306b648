// rio_dir: the host's folder object, through which the module reaches every
// file. Read side first, write side behind it. Each operation that can fail
// leaves its error pending in the object (its Status); the caller fetches it
// with TakeError. Unlike a file, a folder keeps working after a failure, but
// like a file it keeps the first failure until that is taken: an error nobody
// looked at is never lost behind a later one.
//
// Paths are wide text. Both "/" and "\" separate components, so that paths
// written on Windows (parent locators, .vmc files) resolve here too.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/file.h"
#include "vellumrig/ref.h"

// A file or folder as Find and Self see it.
class dir_item : public Processor::RefObject {
 public:
  virtual std::u16string Name() const = 0;
  virtual bool IsFolder() const = 0;
  virtual std::uint64_t Size() const = 0;
};

// Kinds that Enumerate gives its entries.
inline constexpr std::uint32_t kFileEntryKind = 130;
inline constexpr std::uint32_t kFolderEntryKind = 131;

// Lists a folder. It stands on its first entry when made; with nothing to
// list its pending error is 0x40002 "End of file has been encountered.".
class dir_enumerator : public virtual file_object {
 public:
  // Moves to the next entry; false, with 0x40002 pending, past the last.
  virtual bool Next() = 0;
  virtual std::uint32_t GetKind() const = 0;
  virtual std::u16string Name() const = 0;
};

// The special folder where machines are kept by default.
inline constexpr std::uint32_t kMachinesFolder = 143;

// Modes of OpenFile.
inline constexpr std::uint32_t kOpenRead = 0;       // an ri_file
inline constexpr std::uint32_t kOpenReadWrite = 1;  // a rio_file

class rio_dir : public virtual file_object {
 public:
  // --- read side
  // An ri_file (mode 0) or rio_file (mode 1) as an i_file, or null.
  virtual std::unique_ptr<i_file> OpenFile(const std::u16string& name, std::uint32_t mode) = 0;
  // The folder of the enumerator's current entry, or null.
  virtual std::unique_ptr<rio_dir> OpenEntry(const dir_enumerator& entry) = 0;
  // "." gives a new object on the same folder, ".." its parent. The folder
  // need not exist (Self tells); a file of that name gives null.
  virtual std::unique_ptr<rio_dir> OpenFolder(const std::u16string& name) = 0;
  // The folder that holds the path's last component, which need not exist;
  // `path` is advanced to that last component. A bare name gives the same
  // folder. Null on failure.
  virtual std::unique_ptr<rio_dir> OpenParentFolder(const char16_t*& path) = 0;
  virtual std::unique_ptr<rio_dir> OpenSpecialFolder(std::uint32_t kind) = 0;
  // Null when the name does not exist (with no error pending).
  virtual Processor::AutoRef<dir_item> Find(const std::u16string& name) = 0;
  virtual std::unique_ptr<dir_enumerator> Enumerate() = 0;
  // Null, with 0x40011 pending, when this folder does not exist.
  virtual Processor::AutoRef<dir_item> Self() = 0;
  // Empty for a root; otherwise ends in a separator.
  virtual std::u16string FullPath() = 0;
  virtual int IsSameFolder(rio_dir& other) = 0;
  virtual bool IsSeparator(char16_t c) const = 0;
  virtual char16_t Separator() const = 0;
  // A write stream that overwrites, or null.
  virtual std::unique_ptr<rio_file> CreateFile(const std::u16string& name, std::uint32_t mode,
                                               std::uint32_t flags) = 0;

  // --- write side; errors stay pending
  virtual void DeleteFile(const std::u16string& name) = 0;
  virtual void Rename(const std::u16string& oldName, const std::u16string& newName) = 0;
  // "." creates this folder itself; 0x40013 pending when it exists.
  virtual void CreateFolder(const std::u16string& name) = 0;
  virtual void DeleteFolder(const std::u16string& name) = 0;
};
