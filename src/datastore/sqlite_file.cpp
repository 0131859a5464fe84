#include "datastore/sqlite_file.h"

#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <system_error>

#include "platform/errors.h"
#include "zt/error.h"

namespace fs = std::filesystem;

namespace zt::ds {

namespace {

constexpr std::string_view kSource = "CZtDataStore";
constexpr std::int32_t kFileAlreadyExists = 58;

// Engine failures take the data-access layer's numbers, so a busy file is the same error here
// as when a connection meets it.
[[noreturn]] void RaiseEngine(sqlite3* db, int code) {
  platform::RaiseSqlite(std::string(kSource), code, db ? sqlite3_errmsg(db) : sqlite3_errstr(code));
}

[[noreturn]] void RaiseFile(std::int32_t number, const std::string& what, const std::string& path) {
  throw ZtError(number, std::string(kSource), what + ": " + path);
}

struct DbCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
using Db = std::unique_ptr<sqlite3, DbCloser>;

Db Open(const std::string& path, int flags) {
  sqlite3* raw = nullptr;
  int rc = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
  Db db(raw);
  if (rc != SQLITE_OK) RaiseEngine(db.get(), rc);
  return db;
}

void Exec(sqlite3* db, const std::string& sql) {
  int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) RaiseEngine(db, rc);
}

std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') out += '\'';
    out += c;
  }
  return out + "'";
}

}  // namespace

void CreateSqliteFile(const std::string& path) {
  if (fs::exists(path)) RaiseFile(kFileAlreadyExists, "File already exists", path);
  Db db = Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  // An opened but untouched database is a zero-length file; writing the header makes it a
  // database that every tool recognises.
  Exec(db.get(), "PRAGMA user_version=1; PRAGMA user_version=0;");
}

std::vector<std::string> CompanionFiles(const std::string& path) {
  std::vector<std::string> out;
  fs::path lock(path);
  lock.replace_extension(".ldb");
  out.push_back(lock.string());
  for (const char* suffix : {"-journal", "-wal", "-shm"}) out.push_back(path + suffix);
  return out;
}

void DeleteSqliteFile(const std::string& path,
                      const std::function<void(const std::string&)>& deleted) {
  if (!fs::exists(path)) RaiseFile(rt::kFileNotFound, "File not found", path);
  std::error_code ec;
  if (!fs::remove(path, ec) || ec) RaiseFile(rt::kPathFileAccess, "Path/File access error", path);
  deleted(path);
  for (const std::string& companion : CompanionFiles(path))
    if (fs::remove(companion, ec) && !ec) deleted(companion);
}

std::string CompactSqliteFile(const std::string& path) {
  if (!fs::exists(path)) RaiseFile(rt::kFileNotFound, "File not found", path);
  fs::path folder = fs::path(path).parent_path();
  fs::path temp;
  for (int n = 1;; ++n) {
    temp = folder / ("temp" + std::to_string(n) + ".mdb");
    if (!fs::exists(temp)) break;
  }
  Db db = Open(path, SQLITE_OPEN_READWRITE);
  // Keep the file to ourselves while it is copied, as Jet's compaction did: a writer that
  // slipped in during the copy would lose its work when the compacted pages come back.
  Exec(db.get(), "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT;");
  try {
    Exec(db.get(), "VACUUM INTO " + Quoted(temp.string()));
    // The compacted pages are copied back into the same file through the engine rather than
    // renamed over it: a program that has the file open keeps the file it opened, and after a
    // rename that is a deleted one, on which the engine refuses every further write ("attempt
    // to write a readonly database"). The copy is journalled, so a crash half-way leaves the
    // old contents.
    Db compacted = Open(temp.string(), SQLITE_OPEN_READONLY);
    sqlite3_backup* copy = sqlite3_backup_init(db.get(), "main", compacted.get(), "main");
    if (!copy) RaiseEngine(db.get(), sqlite3_errcode(db.get()));
    const int rc = sqlite3_backup_step(copy, -1);
    sqlite3_backup_finish(copy);
    if (rc != SQLITE_DONE) RaiseEngine(db.get(), rc);
  } catch (...) {
    std::error_code ignored;
    fs::remove(temp, ignored);
    throw;
  }
  db.reset();
  std::error_code ignored;
  fs::remove(temp, ignored);
  return temp.string();
}

std::int64_t SqliteFileSize(const std::string& path) {
  std::error_code ec;
  auto size = fs::file_size(path, ec);
  if (ec) RaiseFile(rt::kFileNotFound, "File not found", path);
  auto wal = fs::file_size(path + "-wal", ec);
  return static_cast<std::int64_t>(size + (ec ? 0 : wal));
}

bool IsDatabaseFile(const std::string& path, std::string* why) {
  char header[20] = {};
  std::ifstream in(path, std::ios::binary);
  if (!in || !in.read(header, sizeof header)) {
    if (why) *why = "File not found or not a database: " + path;
    return false;
  }
  // An old Access file is read through MDB Tools; its header is all that can be checked here.
  const std::string jet(header + 4, 15);
  if (jet == "Standard Jet DB" || jet == "Standard ACE DB") return true;
  if (std::string(header, 16) != std::string("SQLite format 3\0", 16)) {
    if (why) *why = "Not a database file: " + path;
    return false;
  }
  try {
    Db db = Open(path, SQLITE_OPEN_READONLY);
    Exec(db.get(), "SELECT count(*) FROM sqlite_schema");
    return true;
  } catch (const ZtError& e) {
    if (why) *why = e.Description();
    return false;
  }
}

}  // namespace zt::ds
