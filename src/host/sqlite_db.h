// A thin hold on SQLite: one connection and its prepared statements, with
// failures told as Common::Error. Host library only; the tracker keeps its
// records through it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "vellumrig/error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Host::detail {

class Database;

// One prepared statement, reset for each use. Binding numbers start at 1.
class Statement {
 public:
  Statement(Database& db, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(int index, std::int64_t value);
  Statement& Bind(int index, std::string_view text);
  Statement& BindBlob(int index, const void* data, std::size_t size);
  Statement& BindNull(int index);
  // Steps once: true with a row to read, false when done. A failure throws
  // Common::Error.
  bool Step();
  // Runs to the end and resets.
  void Run();
  void Reset();

  bool IsNull(int column) const;
  std::int64_t Int(int column) const;
  std::string Text(int column) const;
  // The bytes of a blob column, valid until the next Step or Reset.
  std::string_view Blob(int column) const;

 private:
  Database& db_;
  sqlite3_stmt* stmt_ = nullptr;
};

class Database {
 public:
  ~Database();
  // Opens or creates `path`. Throws Common::Error.
  explicit Database(const std::string& path);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void Execute(const char* sql);
  // The error for a failed call, naming the database and SQLite's reason.
  Common::Error Failure(const Common::ErrorSite& site) const;
  sqlite3* Handle() const { return db_; }
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  sqlite3* db_ = nullptr;
};

// A write transaction, taken at once (BEGIN IMMEDIATE) so that two writers
// wait for each other instead of failing half way; rolled back unless
// committed. A durable one is on disk when Commit returns; another may be
// lost with the machine's power, though never with a crash of the process.
class Transaction {
 public:
  explicit Transaction(Database& db, bool durable = false);
  ~Transaction();
  void Commit();

 private:
  Database& db_;
  bool open_ = true;
};

}  // namespace Host::detail
