#include "host/tracker_core.h"

#include <ftw.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>

#include "common/message_error.h"
#include "common/random.h"
#include "common/site.h"
#include "host/posix_errors.h"
#include "host/process_identity.h"
#include "vellumrig/error_text.h"
#include "vellumrig/file_tracker.h"

namespace Host::detail {
namespace {

constexpr char kSchema[] =
    "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value NOT NULL);"
    "CREATE TABLE IF NOT EXISTS roots(path TEXT PRIMARY KEY);"
    "CREATE TABLE IF NOT EXISTS files(id INTEGER PRIMARY KEY, path TEXT UNIQUE NOT NULL,"
    " device INTEGER NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL,"
    " mtime_ns INTEGER NOT NULL, full_since INTEGER NOT NULL,"
    " writer_pid INTEGER, writer_start INTEGER, writer_token INTEGER);"
    // One row a commit: its ranges packed as little-endian start, end pairs,
    // so that a flush after thousands of scattered writes costs one insert.
    "CREATE TABLE IF NOT EXISTS changes(file INTEGER NOT NULL, generation INTEGER NOT NULL,"
    " ranges BLOB NOT NULL);"
    "CREATE INDEX IF NOT EXISTS changes_of_file ON changes(file, generation);";

// What the tracker compares to notice a write behind its back. A missing
// file is all zeros, which no present file matches.
struct Identity {
  std::int64_t Device = 0, Inode = 0, Size = 0, MtimeNs = 0;
  bool operator==(const Identity&) const = default;
};

std::int64_t Nanoseconds(const struct timespec& t) {
  return static_cast<std::int64_t>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

// The file as it is now. File times advance in clock ticks, so a write
// later in the tick of the last one would leave the time as it is and go
// unnoticed; the identity is therefore taken only once the tick of the
// file's time has passed (a file time in the future is waited for briefly,
// then taken as it is).
Identity StatIdentity(const std::string& path) {
  Identity id;
  struct stat st;
  for (int tries = 0;; ++tries) {
    if (::stat(path.c_str(), &st) != 0) return id;
    struct timespec now;
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    if (Nanoseconds(now) > Nanoseconds(st.st_mtim) || tries >= 50) break;
    const struct timespec pause = {0, 1000000};
    ::nanosleep(&pause, nullptr);
  }
  id.Device = static_cast<std::int64_t>(st.st_dev);
  id.Inode = static_cast<std::int64_t>(st.st_ino);
  id.Size = static_cast<std::int64_t>(st.st_size);
  id.MtimeNs = Nanoseconds(st.st_mtim);
  return id;
}

// Tokens of the writers open in this process, whichever tracker object they
// belong to: a mark with this process's pid but no live token was left by
// an open whose close failed, and reads as a crash.
std::mutex gTokensMutex;
std::set<std::uint64_t> gTokens;

bool TokenLive(std::uint64_t token) {
  std::lock_guard lock(gTokensMutex);
  return gTokens.count(token) != 0;
}

std::string RandomHex(std::size_t bytes) {
  std::vector<unsigned char> raw(bytes);
  Common::GetRandomBytes(raw.data(), raw.size(), false);
  std::string out;
  char two[3];
  for (unsigned char c : raw) {
    std::snprintf(two, sizeof two, "%02x", c);
    out += two;
  }
  return out;
}

std::uint64_t RandomToken() {
  std::uint64_t token = 0;
  while (token == 0) Common::GetRandomBytes(&token, sizeof token, false);
  return token & 0x7FFFFFFFFFFFFFFF;  // SQLite keeps signed integers
}

void PutLittleEndian(std::uint64_t value, std::string& out) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

std::uint64_t GetLittleEndian(const char* in) {
  std::uint64_t value = 0;
  for (int i = 7; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(in[i]);
  return value;
}

std::string Pack(const std::vector<WrittenRanges::Range>& ranges) {
  std::string out;
  out.reserve(ranges.size() * 16);
  for (const auto& [start, end] : ranges) {
    PutLittleEndian(start, out);
    PutLittleEndian(end, out);
  }
  return out;
}

// A damaged blob must not shrink the answer: its ragged tail, or a range
// that makes no sense, stands for the whole file from its start.
void Unpack(std::string_view packed, std::vector<WrittenRanges::Range>& out) {
  std::size_t at = 0;
  for (; at + 16 <= packed.size(); at += 16) {
    const std::uint64_t start = GetLittleEndian(packed.data() + at);
    const std::uint64_t end = GetLittleEndian(packed.data() + at + 8);
    if (end < start) {
      out.emplace_back(0, UINT64_MAX);
      return;
    }
    out.emplace_back(start, end);
  }
  if (at != packed.size()) out.emplace_back(0, UINT64_MAX);
}

}  // namespace

struct TrackerCore::FileRow {
  std::string Path;
  std::int64_t Id = 0;
  Identity Seen;
  std::int64_t FullSince = 0;
  bool HasWriter = false;
  std::int64_t WriterPid = 0, WriterStart = 0, WriterToken = 0;
};

TrackerCore::TrackerCore(const std::string& path) : db_(path) {
  if (!ProcessStartTime(::getpid(), startTime_)) startTime_ = 0;
  // Another program's database is refused before anything is written to
  // it: switching the journal or adding tables would change the user's file.
  // A file that is no database at all fails on this first read.
  {
    Statement tables(db_,
                     "SELECT (SELECT count(*) FROM sqlite_master),"
                     " (SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'meta')");
    tables.Step();
    if (tables.Int(0) != 0) {
      bool ours = false;
      if (tables.Int(1) != 0) {
        Statement id(db_, "SELECT count(*) FROM meta WHERE key = 'id'");
        ours = id.Step() && id.Int(0) == 1;
      }
      if (!ours)
        throw Common::MessageError(VR_SITE,
                                   {TrackerError::NotATracker, Common::Msg::TrackerNotATracker},
                                   {Common::FromUtf8(path)});
    }
  }
  db_.Execute("PRAGMA journal_mode=WAL");
  Transaction t(db_);
  db_.Execute(kSchema);
  Statement get(db_, "SELECT value FROM meta WHERE key = 'id'");
  if (get.Step()) {
    id_ = get.Text(0);
  } else {
    id_ = RandomHex(16);
    Statement put(db_, "INSERT INTO meta(key, value) VALUES('id', ?1), ('generation', 1)");
    put.Bind(1, id_).Run();
  }
  get.Reset();
  t.Commit();
}

std::int64_t TrackerCore::Generation() {
  Statement get(db_, "SELECT value FROM meta WHERE key = 'generation'");
  if (!get.Step()) throw db_.Failure(VR_SITE);
  return get.Int(0);
}

bool TrackerCore::FindFile(const std::string& path, FileRow& row) {
  Statement find(db_,
                 "SELECT id, device, inode, size, mtime_ns, full_since, writer_pid, "
                 "writer_start, writer_token FROM files WHERE path = ?1");
  if (!find.Bind(1, path).Step()) return false;
  row.Path = path;
  row.Id = find.Int(0);
  row.Seen = {find.Int(1), find.Int(2), find.Int(3), find.Int(4)};
  row.FullSince = find.Int(5);
  row.HasWriter = !find.IsNull(8);
  row.WriterPid = find.Int(6);
  row.WriterStart = find.Int(7);
  row.WriterToken = find.Int(8);
  return true;
}

// Brings the row up to what the disk says, inside the caller's transaction.
// A file that changed behind the tracker, or whose writer died before it
// could commit, is vouched for only from the current generation on.
TrackerCore::WriterState TrackerCore::Reconcile(FileRow& row, std::int64_t generation) {
  if (row.HasWriter) {
    bool live;
    if (row.WriterPid == ::getpid()) {
      live = TokenLive(static_cast<std::uint64_t>(row.WriterToken));
    } else {
      std::uint64_t start = 0;
      live = ProcessStartTime(static_cast<pid_t>(row.WriterPid), start) &&
             start == static_cast<std::uint64_t>(row.WriterStart);
    }
    if (live) {
      for (Writer* w : writers_)
        if (w->Token == static_cast<std::uint64_t>(row.WriterToken)) return WriterState::Here;
      return WriterState::Elsewhere;
    }
  }
  const Identity now = StatIdentity(row.Path);
  if (!row.HasWriter && now == row.Seen) return WriterState::None;
  row.Seen = now;
  row.FullSince = std::max(row.FullSince, generation);
  row.HasWriter = false;
  Statement update(db_,
                   "UPDATE files SET device = ?2, inode = ?3, size = ?4, mtime_ns = ?5, "
                   "full_since = ?6, writer_pid = NULL, writer_start = NULL, "
                   "writer_token = NULL WHERE id = ?1");
  update.Bind(1, row.Id).Bind(2, now.Device).Bind(3, now.Inode).Bind(4, now.Size);
  update.Bind(5, now.MtimeNs).Bind(6, row.FullSince).Run();
  return WriterState::None;
}

bool TrackerCore::UnderRoot(const std::string& path) {
  Statement roots(db_, "SELECT path FROM roots");
  while (roots.Step()) {
    const std::string root = roots.Text(0);
    if (path == root || root == "/" ||
        (path.size() > root.size() && path.compare(0, root.size(), root) == 0 &&
         path[root.size()] == '/'))
      return true;
  }
  return false;
}

// A file the tracker meets: a new one is vouched for from now on, a known
// one is checked against what was recorded.
void TrackerCore::See(const std::string& path, std::int64_t generation) {
  FileRow row;
  if (FindFile(path, row)) {
    Reconcile(row, generation);
    return;
  }
  const Identity now = StatIdentity(path);
  Statement insert(db_,
                   "INSERT INTO files(path, device, inode, size, mtime_ns, full_since) "
                   "VALUES(?1, ?2, ?3, ?4, ?5, ?6)");
  insert.Bind(1, path).Bind(2, now.Device).Bind(3, now.Inode).Bind(4, now.Size);
  insert.Bind(5, now.MtimeNs).Bind(6, generation).Run();
}

namespace {
std::vector<std::string>* gWalkFiles;  // nftw takes no context; guarded by gWalkMutex
std::mutex gWalkMutex;

int CollectFile(const char* path, const struct stat* st, int type, struct FTW*) {
  if (type == FTW_F && S_ISREG(st->st_mode)) gWalkFiles->push_back(path);
  return 0;
}
}  // namespace

void TrackerCore::Track(const std::string& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) throw ErrnoError(VR_SITE, FileError::Open, errno, path);
  std::vector<std::string> files;
  if (S_ISDIR(st.st_mode)) {
    std::lock_guard walk(gWalkMutex);
    gWalkFiles = &files;
    const int rc = ::nftw(path.c_str(), CollectFile, 32, FTW_PHYS);
    gWalkFiles = nullptr;
    if (rc != 0) throw ErrnoError(VR_SITE, FileError::Read, errno, path);
  } else {
    files.push_back(path);
  }
  std::lock_guard lock(mutex_);
  Transaction t(db_);
  Statement root(db_, "INSERT OR IGNORE INTO roots(path) VALUES(?1)");
  root.Bind(1, path).Run();
  const std::int64_t generation = Generation();
  for (const std::string& file : files) See(file, generation);
  t.Commit();
}

std::string TrackerCore::CurrentChangeId() {
  std::lock_guard lock(mutex_);
  // Durable: a generation that came back after a power loss would file
  // later changes under an ID already given out.
  Transaction t(db_, true);
  const std::int64_t generation = Generation();
  // A write behind the tracker's back noticed now is older than this ID,
  // so the ID can be answered exactly; noticed later, it would read as
  // newer and make the answer for this ID full.
  std::vector<std::string> paths;
  Statement all(db_, "SELECT path FROM files");
  while (all.Step()) paths.push_back(all.Text(0));
  all.Reset();
  for (const std::string& path : paths) {
    FileRow row;
    if (FindFile(path, row)) Reconcile(row, generation);
  }
  Statement next(db_, "UPDATE meta SET value = ?1 WHERE key = 'generation'");
  next.Bind(1, generation + 1).Run();
  t.Commit();
  return id_ + ":" + std::to_string(generation);
}

TrackerCore::Answer TrackerCore::Changes(const std::string& id, const std::string& path) {
  const std::size_t colon = id.rfind(':');
  std::int64_t since = -1;
  if (colon != std::string::npos && id.compare(0, colon, id_) == 0 && colon == id_.size()) {
    const char* first = id.data() + colon + 1;
    const char* last = id.data() + id.size();
    const auto [end, ec] = std::from_chars(first, last, since);
    if (ec != std::errc() || end != last || first == last) since = -1;
  }
  const std::u16string wide = Common::FromUtf8(id);
  if (since < 0)
    throw Common::MessageError(
        VR_SITE, {TrackerError::ForeignChangeId, Common::Msg::TrackerForeignChangeId}, {wide});

  std::lock_guard lock(mutex_);
  // This process's own writes still in memory count too.
  for (Writer* w : writers_)
    if (w->Path == path) CommitLocked(*w, false);
  Transaction t(db_);
  const std::int64_t generation = Generation();
  if (since >= generation)
    throw Common::MessageError(
        VR_SITE, {TrackerError::FutureChangeId, Common::Msg::TrackerFutureChangeId}, {wide});
  Answer answer;
  FileRow row;
  if (FindFile(path, row)) {
    answer.Tracked = true;
    if (Reconcile(row, generation) == WriterState::Elsewhere || since < row.FullSince) {
      // Another live process holds writes the tracker cannot see yet.
      answer.Full = true;
    } else {
      Statement changes(db_, "SELECT ranges FROM changes WHERE file = ?1 AND generation > ?2");
      changes.Bind(1, row.Id).Bind(2, since);
      while (changes.Step()) Unpack(changes.Blob(0), answer.Regions);
      answer.Regions = MergeRanges(std::move(answer.Regions));
    }
  }
  t.Commit();
  return answer;
}

bool TrackerCore::IsTracked(const std::string& path) {
  std::lock_guard lock(mutex_);
  FileRow row;
  return FindFile(path, row);
}

bool TrackerCore::BeginWriting(Writer& writer, bool emptied) {
  std::lock_guard lock(mutex_);
  // Durable: the mark must be on disk before the bytes it announces. What
  // follows while it stands (ranges, the close) may be lost with the power,
  // which leaves the mark and so a full answer, never too little.
  Transaction t(db_, true);
  const std::int64_t generation = Generation();
  FileRow row;
  if (!FindFile(writer.Path, row)) {
    if (!UnderRoot(writer.Path)) return false;
    See(writer.Path, generation);
    if (!FindFile(writer.Path, row)) throw db_.Failure(VR_SITE);
  } else {
    Reconcile(row, generation);
  }
  writer.Token = RandomToken();
  writer.FileId = row.Id;
  Statement mark(db_,
                 "UPDATE files SET writer_pid = ?2, writer_start = ?3, writer_token = ?4, "
                 "full_since = ?5 WHERE id = ?1");
  mark.Bind(1, row.Id).Bind(2, static_cast<std::int64_t>(::getpid()));
  mark.Bind(3, static_cast<std::int64_t>(startTime_));
  mark.Bind(4, static_cast<std::int64_t>(writer.Token));
  mark.Bind(5, emptied ? generation : row.FullSince).Run();
  {
    std::lock_guard tokens(gTokensMutex);
    gTokens.insert(writer.Token);
  }
  try {
    t.Commit();
  } catch (...) {
    std::lock_guard tokens(gTokensMutex);
    gTokens.erase(writer.Token);
    throw;
  }
  writer.Marked = true;
  writers_.insert(&writer);
  return true;
}

void TrackerCore::Record(Writer& writer, std::uint64_t start, std::uint64_t end) {
  std::lock_guard lock(mutex_);
  writer.Ranges.Add(start, end);
}

void TrackerCore::Commit(Writer& writer, bool closing) {
  std::lock_guard lock(mutex_);
  CommitLocked(writer, closing);
}

void TrackerCore::CommitLocked(Writer& writer, bool closing) {
  if (!writer.Marked || (writer.Ranges.Empty() && !closing)) return;
  std::vector<WrittenRanges::Range> ranges = writer.Ranges.Take();
  try {
    Transaction t(db_);
    const std::int64_t generation = Generation();
    if (!ranges.empty()) {
      const std::string packed = Pack(ranges);
      Statement insert(db_, "INSERT INTO changes(file, generation, ranges) VALUES(?1, ?2, ?3)");
      insert.Bind(1, writer.FileId).Bind(2, generation);
      insert.BindBlob(3, packed.data(), packed.size()).Run();
    }
    if (closing) {
      const Identity now = StatIdentity(writer.Path);
      Statement done(db_,
                     "UPDATE files SET device = ?2, inode = ?3, size = ?4, mtime_ns = ?5, "
                     "writer_pid = NULL, writer_start = NULL, writer_token = NULL WHERE id = ?1");
      done.Bind(1, writer.FileId).Bind(2, now.Device).Bind(3, now.Inode).Bind(4, now.Size);
      done.Bind(5, now.MtimeNs).Run();
    }
    t.Commit();
  } catch (...) {
    // Uncommitted ranges must not be lost: the next Flush or close tries again.
    for (const auto& [start, end] : ranges) writer.Ranges.Add(start, end);
    throw;
  }
  if (closing) writer.Marked = false;
}

void TrackerCore::Forget(Writer& writer) {
  std::lock_guard lock(mutex_);
  writers_.erase(&writer);
  std::lock_guard tokens(gTokensMutex);
  gTokens.erase(writer.Token);
}

}  // namespace Host::detail
