#include "datastore/sqlite_file.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <system_error>

#include "platform/errors.h"
#include "zt/datastore/working_file.h"
#include "zt/env.h"
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
  Env& env = Env::Current();
  if (env.PathInUse(path)) RaiseFile(kFileAlreadyExists, "File already exists", path);
  try {
    Db db = Open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    // An opened but untouched database is a zero-length file; writing the header makes it a
    // database that every tool recognises.
    Exec(db.get(), "PRAGMA user_version=1; PRAGMA user_version=0;");
  } catch (...) {
    // A file without its header is no database; it must not stand in the way of the next try.
    env.RemoveFile(path);
    throw;
  }
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
  Env& env = Env::Current();
  if (!env.FileExists(path)) RaiseFile(rt::kFileNotFound, "File not found", path);
  if (env.RemoveFile(path)) RaiseFile(rt::kPathFileAccess, "Path/File access error", path);
  deleted(path);
  for (const std::string& companion : CompanionFiles(path))
    if (!env.RemoveFile(companion)) deleted(companion);
}

namespace {

// The engine may keep a rollback journal beside the working copy while it writes it.
constexpr std::string_view kJournal = "-journal";

// The working copy of a compaction in progress and its journal, kept where a signal handler can
// read them without allocating: a run stopped by SIGINT or SIGTERM must not leave a full copy
// of the database behind.
char g_working_file[4096];
char g_working_journal[4096];
volatile std::sig_atomic_t g_has_working_file = 0;

void RegisterWorkingFile(const std::string& path) {
  const std::string journal = path + std::string(kJournal);
  if (journal.size() >= sizeof g_working_journal) return;  // the next run removes it
  std::memcpy(g_working_file, path.c_str(), path.size() + 1);
  std::memcpy(g_working_journal, journal.c_str(), journal.size() + 1);
  // The names must be complete before a handler can see the flag.
  std::atomic_signal_fence(std::memory_order_seq_cst);
  g_has_working_file = 1;
}

void ReleaseWorkingFile() {
  g_has_working_file = 0;
}

// Working copies are named "temp." + database file name + "." + six random characters + ".mdb",
// so a copy that a killed run left behind is recognised by the next compaction of the same file.
std::string WorkingPrefix(const fs::path& database) {
  return "temp." + database.filename().string() + ".";
}

bool IsWorkingCopyOf(std::string name, const std::string& prefix) {
  constexpr std::string_view kSuffix = ".mdb";
  constexpr std::size_t kRandom = 6;
  if (name.ends_with(kJournal)) name.resize(name.size() - kJournal.size());
  return name.size() == prefix.size() + kRandom + kSuffix.size() && name.starts_with(prefix) &&
         name.ends_with(kSuffix);
}

// Only the holder of the database's exclusive lock calls this, so no other compaction of the
// same file can be using one of these copies.
void RemoveLeftoverCopies(const fs::path& database) {
  const std::string prefix = WorkingPrefix(database);
  std::error_code ec;
  fs::path folder = database.parent_path();
  if (folder.empty()) folder = ".";
  for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    const std::string name = it->path().filename().string();
    // A symbolic link with the pattern's name is removed as a link; its target is never touched.
    if (IsWorkingCopyOf(name, prefix)) fs::remove(it->path(), ec);
  }
}

// An empty working file that nobody else can have prepared: created exclusively (an existing
// name, symbolic link or not, is never opened) and readable only as the original is.
class WorkingFile {
 public:
  WorkingFile(const fs::path& database, mode_t mode) {
    static constexpr char kChars[] =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::random_device seed;
    std::mt19937 random(seed());
    std::uniform_int_distribution<std::size_t> pick(0, sizeof kChars - 2);
    // A SIGINT or SIGTERM between creating the file and registering it would leave a full copy
    // of the database behind: the signals wait until the file is registered for removal.
    sigset_t stops, before;
    sigemptyset(&stops);
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&stops, sig);
    pthread_sigmask(SIG_BLOCK, &stops, &before);
    for (int attempt = 0; attempt < 100; ++attempt) {
      std::string name = WorkingPrefix(database);
      for (int i = 0; i < 6; ++i) name += kChars[pick(random)];
      path_ = (database.parent_path() / (name + ".mdb")).string();
      fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
      if (fd_ >= 0) break;
      if (errno != EEXIST) break;
    }
    if (fd_ >= 0) RegisterWorkingFile(path_);
    const int open_error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (fd_ < 0) {
      errno = open_error;
      RaiseFile(rt::kPathFileAccess, "Path/File access error", path_);
    }
    // A journal under the new name can only have been planted; the engine must create its own.
    ::unlink((path_ + std::string(kJournal)).c_str());
    // The umask may have narrowed the mode; the copy gets exactly the original's.
    if (::fchmod(fd_, mode) != 0 || ::fstat(fd_, &created_) != 0) {
      Remove();
      RaiseFile(rt::kPathFileAccess, "Path/File access error", path_);
    }
  }
  ~WorkingFile() { Remove(); }
  WorkingFile(const WorkingFile&) = delete;
  WorkingFile& operator=(const WorkingFile&) = delete;

  const std::string& Path() const { return path_; }

  // True while the name still leads to the file created here, not to something put in its place.
  bool StillOurs() const {
    struct stat now {};
    return ::lstat(path_.c_str(), &now) == 0 && now.st_dev == created_.st_dev &&
           now.st_ino == created_.st_ino;
  }

 private:
  void Remove() {
    if (fd_ < 0) return;
    ReleaseWorkingFile();
    if (StillOurs()) ::unlink(path_.c_str());
    ::unlink((path_ + std::string(kJournal)).c_str());
    ::close(fd_);
    fd_ = -1;
  }

  std::string path_;
  int fd_ = -1;
  struct stat created_ {};
};

}  // namespace

std::string CompactSqliteFile(const std::string& path) {
  struct stat original {};
  if (::stat(path.c_str(), &original) != 0) RaiseFile(rt::kFileNotFound, "File not found", path);
  Db db = Open(path, SQLITE_OPEN_READWRITE);
  // Keep the file to ourselves while it is copied, as Jet's compaction did: a writer that
  // slipped in during the copy would lose its work when the compacted pages come back.
  Exec(db.get(), "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; COMMIT;");
  RemoveLeftoverCopies(fs::path(path));
  // Read and write bits only: the copy is data, never a program.
  WorkingFile temp(fs::path(path), original.st_mode & 0777);
  // The engine writes into the empty file created above; it fills an empty file.
  Exec(db.get(), "VACUUM INTO " + Quoted(temp.Path()));
  if (!temp.StillOurs())
    RaiseFile(rt::kPathFileAccess, "Working file replaced during compaction", temp.Path());
  // The compacted pages are copied back into the same file through the engine rather than
  // renamed over it: a program that has the file open keeps the file it opened, and after a
  // rename that is a deleted one, on which the engine refuses every further write ("attempt
  // to write a readonly database"). The copy is journalled, so a crash half-way leaves the
  // old contents.
  Db compacted = Open(temp.Path(), SQLITE_OPEN_READONLY);
  sqlite3_backup* copy = sqlite3_backup_init(db.get(), "main", compacted.get(), "main");
  if (!copy) RaiseEngine(db.get(), sqlite3_errcode(db.get()));
  const int rc = sqlite3_backup_step(copy, -1);
  sqlite3_backup_finish(copy);
  if (rc != SQLITE_DONE) RaiseEngine(db.get(), rc);
  compacted.reset();
  db.reset();
  return temp.Path();
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
  // An old Access file is read with libmdb; its header is all that can be checked here.
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

namespace zt {

void RemoveCompactionWorkingFile() noexcept {
  if (ds::g_has_working_file) {
    ds::g_has_working_file = 0;
    ::unlink(ds::g_working_file);
    ::unlink(ds::g_working_journal);
  }
}

}  // namespace zt
