// The host library's file tracker: a FileTracker for stand-alone Linux
// hosts, kept in one SQLite database whose path the host chooses. Hosts
// create it with OpenTracker, name what it watches with Track, and write
// through the folders it gives out; those folders behave as Host::OpenFolder
// describes, and their files tell the tracker which bytes they wrote.
//
// A change ID is "<tracker id>:<generation>"; GetCurrentChangeID closes the
// current generation. The tracker never tells too little: a file written
// behind its back (its device, inode, size or modification time differ from
// what it recorded) or left open for writing by a process that died counts
// as wholly changed for every ID given out before the tracker noticed, and
// a file it never saw is not tracked.
//
// Folders and files it gave out keep what they need, so the tracker object
// may go before them. One object may be used from several threads.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vellumrig/error.h"
#include "vellumrig/folder.h"
#include "vellumrig/tracker.h"

namespace Host {

// The tracker's own error codes, in the file facility beyond the file-error
// codes of file.h.
namespace TrackerError {
inline constexpr std::uint32_t Database = 0x40030;         // SQLite failed; its reason follows
inline constexpr std::uint32_t ForeignChangeId = 0x40031;  // not an ID of this tracker
inline constexpr std::uint32_t FutureChangeId = 0x40032;   // a generation still open
inline constexpr std::uint32_t NotATracker = 0x40033;      // the database is someone else's
}  // namespace TrackerError

class TrackingHost : public FileTracker {
 public:
  // Starts watching `path`: a folder (every regular file beneath it, now and
  // when later created or written through this tracker's folders) or a
  // single file. Files seen now count as wholly changed for IDs given out
  // before. Tracking a path again is harmless.
  virtual Common::Error Track(const std::u16string& path) = 0;

  // A folder object for `path` (relative to the current folder) whose files,
  // opened or created for writing, report their writes to this tracker when
  // they lie under a tracked path. Null only when the current folder
  // cannot be found.
  virtual std::unique_ptr<rio_dir> OpenFolder(const std::u16string& path) = 0;
};

// The tracker kept in `databasePath`, created when missing. Null, with
// `error` set, when the database cannot be opened or is not a tracker's.
std::unique_ptr<TrackingHost> OpenTracker(const std::u16string& databasePath,
                                          Common::Error& error);

}  // namespace Host
