#include "host/sqlite_db.h"

#include <sqlite3.h>

#include "common/message_error.h"
#include "common/site.h"
#include "vellumrig/error_text.h"
#include "vellumrig/file_tracker.h"

namespace Host::detail {
namespace {

// How long a writer waits for another process's transaction before failing.
constexpr int kBusyTimeoutMs = 30000;

}  // namespace

Database::Database(const std::string& path) : path_(path) {
  const int rc = sqlite3_open_v2(path.c_str(), &db_,
                                 SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                                 nullptr);
  if (rc != SQLITE_OK) throw Failure(VR_SITE);
  sqlite3_busy_timeout(db_, kBusyTimeoutMs);
  sqlite3_extended_result_codes(db_, 1);
}

Database::~Database() { sqlite3_close_v2(db_); }

void Database::Execute(const char* sql) {
  if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) throw Failure(VR_SITE);
}

Common::Error Database::Failure(const Common::ErrorSite& site) const {
  const char* reason = db_ ? sqlite3_errmsg(db_) : "out of memory";
  return Common::MessageError(
      site, {TrackerError::Database, Common::Msg::TrackerDatabaseFailed},
      {Common::FromUtf8(path_), Common::FromUtf8(reason ? reason : "")});
}

Statement::Statement(Database& db, const char* sql) : db_(db) {
  if (sqlite3_prepare_v2(db.Handle(), sql, -1, &stmt_, nullptr) != SQLITE_OK)
    throw db.Failure(VR_SITE);
}

Statement::~Statement() { sqlite3_finalize(stmt_); }

Statement& Statement::Bind(int index, std::int64_t value) {
  if (sqlite3_bind_int64(stmt_, index, value) != SQLITE_OK) throw db_.Failure(VR_SITE);
  return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
  if (sqlite3_bind_text(stmt_, index, text.data(), static_cast<int>(text.size()),
                        SQLITE_TRANSIENT) != SQLITE_OK)
    throw db_.Failure(VR_SITE);
  return *this;
}

Statement& Statement::BindBlob(int index, const void* data, std::size_t size) {
  if (sqlite3_bind_blob64(stmt_, index, data, size, SQLITE_TRANSIENT) != SQLITE_OK)
    throw db_.Failure(VR_SITE);
  return *this;
}

Statement& Statement::BindNull(int index) {
  if (sqlite3_bind_null(stmt_, index) != SQLITE_OK) throw db_.Failure(VR_SITE);
  return *this;
}

bool Statement::Step() {
  const int rc = sqlite3_step(stmt_);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return false;
  Common::Error error = db_.Failure(VR_SITE);
  sqlite3_reset(stmt_);
  throw error;
}

void Statement::Run() {
  while (Step()) {
  }
  Reset();
}

void Statement::Reset() {
  sqlite3_reset(stmt_);
  sqlite3_clear_bindings(stmt_);
}

bool Statement::IsNull(int column) const {
  return sqlite3_column_type(stmt_, column) == SQLITE_NULL;
}

std::int64_t Statement::Int(int column) const { return sqlite3_column_int64(stmt_, column); }

std::string Statement::Text(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
  return text ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column)))
              : std::string();
}

Transaction::Transaction(Database& db, bool durable) : db_(db) {
  // In WAL mode a FULL commit syncs the log, and with it every commit before.
  db_.Execute(durable ? "PRAGMA synchronous=FULL" : "PRAGMA synchronous=NORMAL");
  db_.Execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (open_) sqlite3_exec(db_.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
  db_.Execute("COMMIT");
  open_ = false;
}

}  // namespace Host::detail

namespace Host::detail {

std::string_view Statement::Blob(int column) const {
  const void* data = sqlite3_column_blob(stmt_, column);
  const int size = sqlite3_column_bytes(stmt_, column);
  return data ? std::string_view(static_cast<const char*>(data), static_cast<std::size_t>(size))
              : std::string_view();
}

}  // namespace Host::detail
