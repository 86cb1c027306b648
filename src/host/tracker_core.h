// The tracker's records: which files it watches, what they looked like when
// it last vouched for them, and which byte ranges changed in which
// generation, in one SQLite database. Host library only; the public
// TrackingHost and the tracking folders and files are built on it.
//
// Every operation throws Common::Error; all of them may be called from
// several threads.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/sqlite_db.h"
#include "host/written_ranges.h"

namespace Host::detail {

// One open file's writing, as the tracker sees it. Created by the file,
// filled under the tracker's lock.
struct Writer {
  explicit Writer(std::string p) : Path(std::move(p)) {}
  const std::string Path;  // absolute, normalised, UTF-8
  std::uint64_t Token = 0;
  std::int64_t FileId = 0;
  bool Marked = false;  // the database says it is open for writing
  WrittenRanges Ranges;
};

class TrackerCore {
 public:
  // `path`: the database, created when missing.
  explicit TrackerCore(const std::string& path);

  void Track(const std::string& path);
  // The ID of the current generation, which is closed by the call.
  std::string CurrentChangeId();

  struct Answer {
    bool Tracked = false;
    bool Full = false;
    std::vector<WrittenRanges::Range> Regions;
  };
  Answer Changes(const std::string& id, const std::string& path);
  bool IsTracked(const std::string& path);

  // Before the first byte reaches the file: marks it open for writing, in a
  // committed transaction. `emptied` says the whole file is about to be
  // replaced. False, and nothing marked, for a file outside what is tracked.
  bool BeginWriting(Writer& writer, bool emptied);
  void Record(Writer& writer, std::uint64_t start, std::uint64_t end);
  // Commits the ranges; `closing` also records the file as it now is and
  // clears the mark. On failure the ranges stay for the next try.
  void Commit(Writer& writer, bool closing);
  // The writer is gone; a mark it left stays and will read as a crash.
  void Forget(Writer& writer);

 private:
  struct FileRow;
  enum class WriterState { None, Here, Elsewhere };

  bool FindFile(const std::string& path, FileRow& row);
  WriterState Reconcile(FileRow& row, std::int64_t generation);
  void See(const std::string& path, std::int64_t generation);
  void CommitLocked(Writer& writer, bool closing);
  bool UnderRoot(const std::string& path);
  std::int64_t Generation();

  std::mutex mutex_;
  Database db_;
  std::string id_;
  std::uint64_t startTime_ = 0;
  std::set<Writer*> writers_;
};

}  // namespace Host::detail
