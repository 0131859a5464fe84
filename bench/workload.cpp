// The synthetic help-desk store (see workload.h). Written with SQLite's own interface, not the
// library's, so that the store is the same whatever the library under measurement does.
#include "workload.h"

#include <sqlite3.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace zt::bench {

namespace {

// A small fast generator (splitmix64): the same seed gives the same sequence on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : s_(seed) {}
  std::uint64_t Next() {
    std::uint64_t z = (s_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  std::int64_t Below(std::int64_t n) { return static_cast<std::int64_t>(Next() % n); }
  bool Chance(int percent) { return Below(100) < percent; }

 private:
  std::uint64_t s_;
};

const std::array<const char*, 12> kWords = {"printer",    "Drucker", "réseau",  "correo",
                                            "パスワード", "сервер",  "VPN",     "laptop",
                                            "écran",      "登录",    "Ausfall", "licence"};
const std::array<const char*, 5> kStatus = {"Open", "Closed", "Pending", "Escalated", "Resolved"};
const std::array<const char*, 4> kPriority = {"Low", "Normal", "High", "Urgent"};
const std::array<const char*, 8> kNames = {"Anna Müller",    "José Núñez",    "Li Wei",
                                           "Ólafur Jónsson", "Zoë O'Brien",   "Søren Kierkegaard",
                                           "Ivan Petrov",    "Amélie Poulain"};

std::string Words(Random& r, int count) {
  std::string out;
  for (int i = 0; i < count; ++i) {
    if (i) out += ' ';
    out += kWords[static_cast<std::size_t>(r.Below(kWords.size()))];
  }
  return out;
}

// "YYYY-MM-DD HH:MM:SS", as the library stores dates in an SQLite file.
std::string DateText(Random& r, int year_from) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d",
                year_from + static_cast<int>(r.Below(5)), 1 + static_cast<int>(r.Below(12)),
                1 + static_cast<int>(r.Below(28)), static_cast<int>(r.Below(24)),
                static_cast<int>(r.Below(60)), static_cast<int>(r.Below(60)));
  return buf;
}

class Db {
 public:
  explicit Db(const std::string& path) {
    if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK) Fail("open");
  }
  ~Db() { sqlite3_close(db_); }
  Db(const Db&) = delete;
  Db& operator=(const Db&) = delete;
  void Exec(const std::string& sql) {
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Fail(sql);
  }
  [[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("workload: " + what + ": " + sqlite3_errmsg(db_));
  }
  sqlite3* get() { return db_; }

 private:
  sqlite3* db_ = nullptr;
};

// One prepared INSERT with a value per column: Null, integer, real or text.
class Insert {
 public:
  Insert(Db& db, const WorkloadTable& t) : db_(db) {
    std::string sql = "INSERT INTO \"" + t.name + "\" VALUES (";
    for (std::size_t i = 0; i < t.columns.size(); ++i) sql += i ? ", ?" : "?";
    sql += ")";
    if (sqlite3_prepare_v2(db.get(), sql.c_str(), -1, &st_, nullptr) != SQLITE_OK) db.Fail(sql);
  }
  ~Insert() { sqlite3_finalize(st_); }
  Insert(const Insert&) = delete;
  Insert& operator=(const Insert&) = delete;
  Insert& Null() {
    sqlite3_bind_null(st_, ++i_);
    return *this;
  }
  Insert& Int(std::int64_t v) {
    sqlite3_bind_int64(st_, ++i_, v);
    return *this;
  }
  Insert& Real(double v) {
    sqlite3_bind_double(st_, ++i_, v);
    return *this;
  }
  Insert& Text(const std::string& v) {
    sqlite3_bind_text(st_, ++i_, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT);
    return *this;
  }
  void Run() {
    if (sqlite3_step(st_) != SQLITE_DONE) db_.Fail("insert");
    sqlite3_reset(st_);
    i_ = 0;
  }

 private:
  Db& db_;
  sqlite3_stmt* st_ = nullptr;
  int i_ = 0;
};

void FillCalls(Db& db, std::int64_t calls, std::int64_t users, Random& r) {
  Insert ins(db, WorkloadTableNamed("tblCalls"));
  for (std::int64_t i = 1; i <= calls; ++i) {
    // About one call in ten repeats the number of an earlier call.
    const std::int64_t id = (i > 1 && r.Chance(10)) ? 1 + r.Below(i - 1) : i;
    const bool closed = r.Chance(60);
    ins.Int(i)
        .Int(id)
        .Text(Words(r, 1 + static_cast<int>(r.Below(8))))
        .Text(kStatus[static_cast<std::size_t>(r.Below(kStatus.size()))])
        .Text(kPriority[static_cast<std::size_t>(r.Below(kPriority.size()))])
        .Text(kNames[static_cast<std::size_t>(r.Below(kNames.size()))]);
    if (r.Chance(20))
      ins.Null();
    else
      ins.Text("user" + std::to_string(r.Below(users)) + "@example.com");
    if (r.Chance(15))
      ins.Null();
    else
      // Notes of up to about 2,000 characters.
      ins.Text(Words(r, 5 + static_cast<int>(r.Below(280))) + "\n\tline 2: \"quoted\" \\ end");
    ins.Text(DateText(r, 2019));
    if (closed)
      ins.Text(DateText(r, 2024));
    else
      ins.Null();
    // Minutes past 2^31 in one call of twenty: a 64-bit column.
    ins.Int(r.Chance(10) ? -1 : 0)
        .Int(r.Chance(50) ? -1 : 0)
        .Int(r.Chance(5) ? std::int64_t{3000000000} + r.Below(10000) : r.Below(10000));
    if (r.Chance(30))
      ins.Null();
    else
      ins.Real(static_cast<double>(r.Below(1000)) / 8.0);
    ins.Real(static_cast<double>(r.Below(10000000)) / 100.0).Int(1 + r.Below(users));
    if (r.Chance(25))
      ins.Null();
    else
      ins.Text(Words(r, 1));
    ins.Run();
  }
}

}  // namespace

const std::vector<WorkloadTable>& WorkloadTables() {
  static const std::vector<WorkloadTable> tables = {
      // Declared as other SQLite programs declare columns, by SQLite's own names: a copy must
      // keep their meaning (TEXT unbounded, REAL a double, NUMERIC exact, INTEGER 64-bit).
      {"tblCalls",
       {{"nId", "INTEGER NOT NULL PRIMARY KEY", "BIGINT NOT NULL PRIMARY KEY"},
        {"nCallId", "INTEGER", "INTEGER"},
        {"tSubject", "TEXT", "TEXT"},
        {"tStatus", "VARCHAR(20)", "VARCHAR(20)"},
        {"tPriority", "VARCHAR(10)", "VARCHAR(10)"},
        {"tCaller", "VARCHAR(50)", "VARCHAR(50)"},
        {"tEmail", "VARCHAR(80)", "VARCHAR(80)"},
        {"mDescription", "TEXT", "TEXT"},
        {"dOpened", "DATETIME", "TIMESTAMP"},
        {"dClosed", "DATETIME", "TIMESTAMP"},
        {"fUrgent", "BIT", "@BOOL"},
        {"fBillable", "BIT", "@BOOL"},
        {"nMinutes", "INTEGER", "BIGINT"},
        {"dblRating", "REAL", "DOUBLE PRECISION"},
        {"curCharge", "NUMERIC(19,4)", "@MONEY"},
        {"nUserId", "INTEGER", "INTEGER"},
        {"tCategory", "VARCHAR(30)", "VARCHAR(30)"}},
       {"dOpened"}},
      {"tblUser",
       {{"nUserId", "LONG", "INTEGER"},
        {"tLogin", "TEXT(50)", "VARCHAR(50)"},
        {"tFullName", "TEXT(100)", "VARCHAR(100)"},
        {"fActive", "BIT", "@BOOL"},
        {"dCreated", "DATETIME", "TIMESTAMP"}},
       {}},
      {"tblSettings",
       {{"tName", "TEXT(100)", "VARCHAR(100)"},
        {"tValue", "TEXT(255)", "VARCHAR(255)"},
        {"nUserId", "LONG", "INTEGER"}},
       {}},
      {"tblFields",
       {{"nFieldId", "LONG", "INTEGER"},
        {"tFieldName", "TEXT(64)", "VARCHAR(64)"},
        {"nDataType", "LONG", "INTEGER"},
        {"nSize", "LONG", "INTEGER"},
        {"fRequired", "BIT", "@BOOL"}},
       {}},
  };
  return tables;
}

const WorkloadTable& WorkloadTableNamed(const std::string& name) {
  for (const WorkloadTable& t : WorkloadTables())
    if (t.name == name) return t;
  throw std::invalid_argument("workload: no table " + name);
}

std::string CreateTableSql(const WorkloadTable& table, bool server, const std::string& boolean_type,
                           const std::string& money_type) {
  std::string sql = "CREATE TABLE [" + table.name + "] (";
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const WorkloadColumn& c = table.columns[i];
    std::string type = server ? c.server_type : c.sqlite_type;
    if (type == "@BOOL") type = boolean_type;
    if (type == "@MONEY") type = money_type;
    sql += (i ? ", [" : "[") + c.name + "] " + type;
  }
  return sql + ")";
}

std::vector<std::string> CreateIndexSql(const WorkloadTable& table) {
  std::vector<std::string> out;
  for (const std::string& c : table.indexed)
    out.push_back("CREATE INDEX [IN_" + table.name + "_" + c + "] ON [" + table.name + "] ([" + c +
                  "])");
  return out;
}

void WriteHelpDeskStore(const std::string& path, std::int64_t calls, std::uint64_t seed) {
  std::filesystem::remove(path);
  Db db(path);
  db.Exec("PRAGMA journal_mode=OFF");
  db.Exec("PRAGMA synchronous=OFF");
  for (const WorkloadTable& t : WorkloadTables()) {
    std::vector<std::string> statements = CreateIndexSql(t);
    statements.insert(statements.begin(), CreateTableSql(t, false));
    for (std::string& sql : statements) {
      for (char& ch : sql)
        if (ch == '[' || ch == ']') ch = '"';
      db.Exec(sql);
    }
  }
  Random r(seed);
  const std::int64_t users = std::max<std::int64_t>(10, calls / 50);
  db.Exec("BEGIN");
  FillCalls(db, calls, users, r);
  {
    Insert ins(db, WorkloadTableNamed("tblUser"));
    for (std::int64_t u = 1; u <= users; ++u)
      ins.Int(u)
          .Text("user" + std::to_string(u))
          .Text(kNames[static_cast<std::size_t>(r.Below(kNames.size()))])
          .Int(r.Chance(90) ? -1 : 0)
          .Text(DateText(r, 2015))
          .Run();
  }
  {
    Insert ins(db, WorkloadTableNamed("tblSettings"));
    for (int s = 1; s <= 200; ++s) {
      ins.Text("Setting" + std::to_string(s)).Text(Words(r, 3));
      if (s % 4 == 0)
        ins.Null();
      else
        ins.Int(1 + r.Below(users));
      ins.Run();
    }
  }
  {
    Insert ins(db, WorkloadTableNamed("tblFields"));
    for (int f = 1; f <= 120; ++f)
      ins.Int(f)
          .Text("fld" + std::to_string(f))
          .Int(std::array<int, 6>{1, 4, 7, 8, 10, 12}[static_cast<std::size_t>(r.Below(6))])
          .Int(r.Below(255))
          .Int(r.Chance(30) ? -1 : 0)
          .Run();
  }
  db.Exec("COMMIT");
}

}  // namespace zt::bench
