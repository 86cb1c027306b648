// Vhdx::DiskFileHierarchy: a container file with the chain of its parents,
// found through the parent locator and checked by linkage. Reads pass the
// sectors a file does not hold on to its parent, and read zeros past the
// end of a shorter parent. Module-internal; Vhdx::Disk holds the top one.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "common/guid.h"
#include "vellumrig/folder.h"
#include "vhdx/disk/disk_file_open.h"

namespace Vhdx {

// Parent locator keys, compared exactly; the paths are tried in this order.
inline constexpr char16_t kParentLinkageKey[] = u"parent_linkage";
inline constexpr char16_t kRelativePathKey[] = u"relative_path";
inline constexpr char16_t kVolumePathKey[] = u"volume_path";
inline constexpr char16_t kAbsoluteWin32PathKey[] = u"absolute_win32_path";

class DiskFileHierarchy : public FileHoldingDiskFile {
 public:
  DiskFileHierarchy(std::unique_ptr<i_file> file, bool writable, SelectiveMetadataConsumer& consumer,
                    std::u16string fullName);
  // Takes the chain down level by level: a long chain must not recurse.
  ~DiskFileHierarchy() override;

  const std::u16string& GetFullName() const { return fullName_; }
  // Null at the root of the chain.
  DiskFileHierarchy* GetParent() const { return parent_.get(); }

  void Read(std::uint64_t sector, Vhd::Bitmap& wanted, void* buffer) override;
  // Runs of data name the level that holds them.
  void Map(std::uint64_t sector, Vhd::Bitmap& wanted, const SectorRunSink& map) override;
  // The host's file object of this level, for tools that move its bytes
  // themselves (see SectorRun); only sound while no log was replayed.
  i_file& GetHostFile() const { return HostFile(); }

 private:
  // Hands the request to each level in turn, `take(level, bits)`, with
  // what is left wanted; `pastParent(level, first, count)` for sectors
  // that lie past the end of a shorter parent.
  template <class Take, class PastParent>
  void Walk(std::uint64_t sector, Vhd::Bitmap& wanted, Take take, PastParent pastParent);

  friend std::unique_ptr<DiskFileHierarchy> OpenHierarchy(rio_dir&, const std::u16string&,
                                                          SelectiveMetadataConsumer&, bool);

  struct Parent;
  // Opens and checks the direct parent of this file, whose folder is `dir`;
  // none for a file without one. `chain` holds the full names of this file
  // and those below it.
  Parent OpenParent(rio_dir& dir, SelectiveMetadataConsumer& consumer, const std::set<std::u16string>& chain);

  std::u16string fullName_;
  std::unique_ptr<DiskFileHierarchy> parent_;
};

// The parent's DataWriteGuid as the locator states it: the text between the
// first "{" and the next "}", or up to the first "}" when there is no "{"
// (or it is the last character). Text that is no GUID gives all zero.
Common::Guid ParseParentLinkage(const std::u16string& value);

// Opens `path` (relative to `dir`) and its whole chain, as deep as it goes;
// only the top file is writable, and only when asked. Parents see the same
// consumer.
std::unique_ptr<DiskFileHierarchy> OpenHierarchy(rio_dir& dir, const std::u16string& path,
                                                 SelectiveMetadataConsumer& consumer, bool writable);

}  // namespace Vhdx
