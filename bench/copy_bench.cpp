// The streaming table copy against the fastest hand-written load of the same rows, in one run:
// 1,000,000 calls rows (ZT_BENCH_ROWS) of the synthetic help-desk store, read from an SQLite file.
//
//   SQLite -> PostgreSQL  StreamTableRows    against a bare libpq COPY (text format) fed by
//                                            sqlite3 directly, single-threaded;   goal >= 0.85
//   SQLite -> SQLite      StreamTableRows    against ATTACH + INSERT ... SELECT;  goal >= 0.8
//   SQLite -> MariaDB     StreamTableRows    against a multi-row INSERT loop fed by sqlite3
//                                            directly (250 rows a statement through the
//                                            library's PreparedStatement) and against a bare
//                                            LOAD DATA LOCAL INFILE of a file of the same rows
//                                            written beforehand; goal >= 0.8 of the latter
//   MariaDB -> SQLite     `ztdb copy`        against a bare Connector/C mysql_use_result loop
//                                            writing the same SQLite file; goal >= 0.8
//
// Each pair also runs the whole `ztdb copy` command (BM_*_Ztdb), the way administrators copy,
// and PostgreSQL and SQLite with --verify (BM_*_ZtdbVerify; goal: verifying takes no longer
// than the copy, so at most twice BM_*_Ztdb). Every target has the source's key and index.
//
// The servers are those of tests/servers/servers.sh (DBTEST_PG_*, DBTEST_MY_*); a pair whose
// server is not configured is skipped. Each iteration starts from an empty target table made with
// the timer paused. max_rss_mb is the process's peak resident set so far (goal: under 64 MiB).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <libpq-fe.h>
#include <mysql.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "schema/copy_stream.h"
#include "workload.h"
#include "zt/platform.h"

namespace {

using zt::bench::WorkloadTableNamed;

std::int64_t Rows() {
  const char* v = std::getenv("ZT_BENCH_ROWS");
  return v ? std::atoll(v) : 1000000;
}

std::string Env(const char* name, const char* fallback = "") {
  const char* v = std::getenv(name);
  return v ? v : fallback;
}

double MaxRssMb() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

std::string TempPath(const std::string& name) {
  return (std::filesystem::temp_directory_path() /
          ("zt_copy_bench_" + std::to_string(::getpid()) + "_" + name))
      .string();
}

// The files of this process, removed when it ends.
struct TempFiles {
  ~TempFiles() {
    for (const char* name : {"source.db", "target.db"}) {
      std::error_code ec;
      std::filesystem::remove(TempPath(name), ec);
    }
  }
} temp_files;

// The servers are the test suites' too: a million-row table left there would be copied by the
// whole-store tests, so the table goes when the benchmark ends.
void DropServerTable(const std::shared_ptr<zt::Connection>& cn) {
  try {
    cn->Execute("DROP TABLE [tblCalls]");
  } catch (const zt::ZtError&) {
  }
}

// The source store, written once per process.
const std::string& SourcePath() {
  static const std::string path = [] {
    const std::string p = TempPath("source.db");
    zt::bench::WriteHelpDeskStore(p, Rows(), 42);
    return p;
  }();
  return path;
}

const std::string& TargetPath() {
  static const std::string path = TempPath("target.db");
  return path;
}

std::string SqliteConnectionString(const std::string& path) {
  return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path + ";";
}

std::string ServerConnectionString(const std::string& provider, const std::string& prefix) {
  auto e = [&](const char* suffix, const char* fallback = "") {
    return Env((prefix + suffix).c_str(), fallback);
  };
  return "Provider=" + provider + ";Data Source=" + e("_HOST", "127.0.0.1") +
         ";Port=" + e("_PORT") + ";Database=" + e("_DB", "dbtest") +
         ";User ID=" + e("_USER", "dbtest") + ";Password=" + e("_PASSWORD") + ";";
}

struct Target {
  std::string name;
  std::string prefix;  // DBTEST_PG / DBTEST_MY, "" for the SQLite file
  std::string provider;
  std::string boolean_type, money_type;

  bool Available() const { return prefix.empty() || !Env((prefix + "_PORT").c_str()).empty(); }
  std::shared_ptr<zt::Connection> Open() const {
    auto cn = std::make_shared<zt::Connection>();
    cn->SetCommandTimeout(0);  // a million rows: no statement is cut short
    cn->Open(prefix.empty() ? SqliteConnectionString(TargetPath())
                            : ServerConnectionString(provider, prefix));
    return cn;
  }
  // An empty tblCalls.
  void Reset(zt::Connection& cn) const {
    try {
      cn.Execute("DROP TABLE [tblCalls]");
    } catch (const zt::ZtError&) {
    }
    const auto& calls = WorkloadTableNamed("tblCalls");
    cn.Execute(zt::bench::CreateTableSql(calls, !prefix.empty(), boolean_type, money_type));
    for (const std::string& index : zt::bench::CreateIndexSql(calls)) cn.Execute(index);
    if (name == "PostgreSQL") cn.Execute("VACUUM ANALYZE [tblCalls]");
    // Every run starts with nothing of the last one still being written out: the kernel's
    // write-back of a gigabyte would otherwise land in whichever run comes next.
    ::sync();
  }
};

const Target kPg{"PostgreSQL", "DBTEST_PG", "PostgreSQL", "BOOLEAN", "NUMERIC(19,4)"};
const Target kSqlite{"SQLite", "", "", "", ""};
const Target kMaria{"MariaDB", "DBTEST_MY", "MySQLProv", "BIT(1)", "DECIMAL(19,4)"};

// Whether column `c` of tblCalls is a Boolean (stored -1 / 0 in the SQLite file; the servers'
// Boolean columns take true / false).
bool IsBoolean(int c) {
  static const std::vector<bool> flags = [] {
    std::vector<bool> out;
    for (const auto& col : WorkloadTableNamed("tblCalls").columns)
      out.push_back(col.sqlite_type == "BIT");
    return out;
  }();
  return flags[static_cast<std::size_t>(c)];
}

// Reads tblCalls from the source file with sqlite3 directly, one row at a time.
class SourceRows {
 public:
  SourceRows() {
    if (sqlite3_open_v2(SourcePath().c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK ||
        sqlite3_prepare_v2(db_, "SELECT * FROM tblCalls", -1, &st_, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(db_));
  }
  ~SourceRows() {
    sqlite3_finalize(st_);
    sqlite3_close(db_);
  }
  SourceRows(const SourceRows&) = delete;
  SourceRows& operator=(const SourceRows&) = delete;
  bool Next() { return sqlite3_step(st_) == SQLITE_ROW; }
  sqlite3_stmt* get() { return st_; }
  int Columns() { return sqlite3_column_count(st_); }

 private:
  sqlite3* db_ = nullptr;
  sqlite3_stmt* st_ = nullptr;
};

void Finish(benchmark::State& state, std::int64_t rows) {
  state.counters["rows"] = static_cast<double>(rows);
  state.counters["rows_per_s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsIterationInvariantRate);
  state.counters["max_rss_mb"] = MaxRssMb();
}

void RunStream(benchmark::State& state, const Target& t) {
  if (!t.Available()) return state.SkipWithError((t.prefix + "_PORT is not set").c_str());
  auto source = std::make_shared<zt::Connection>();
  source->SetCommandTimeout(0);
  source->Open(SqliteConnectionString(SourcePath()));
  auto target = t.Open();
  zt::schema::StreamCopyResult r;
  for (auto _ : state) {
    state.PauseTiming();
    t.Reset(*target);
    state.ResumeTiming();
    r = zt::schema::StreamTableRows(source, target, "tblCalls");
  }
  if (!t.prefix.empty()) DropServerTable(target);
  if (r.failed != 0) state.SkipWithError("records were refused");
  state.counters["path"] = static_cast<double>(static_cast<int>(r.path));
  Finish(state, r.rows);
}

// A COPY field of text format: backslash, tab, line feed and carriage return escaped.
void AppendEscaped(std::string& out, const unsigned char* p, int n) {
  for (int i = 0; i < n; ++i) {
    const char c = static_cast<char>(p[i]);
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
}

void BareCopy(PGconn* pg) {
  PGresult* res = PQexec(pg, "COPY \"tblCalls\" FROM STDIN");
  if (PQresultStatus(res) != PGRES_COPY_IN) throw std::runtime_error(PQerrorMessage(pg));
  PQclear(res);
  SourceRows src;
  const int n = src.Columns();
  std::string buf;
  char num[32];
  while (src.Next()) {
    sqlite3_stmt* st = src.get();
    for (int c = 0; c < n; ++c) {
      if (c) buf += '\t';
      switch (sqlite3_column_type(st, c)) {
        case SQLITE_NULL:
          buf += "\\N";
          break;
        case SQLITE_INTEGER: {
          const sqlite3_int64 v = sqlite3_column_int64(st, c);
          if (IsBoolean(c))
            buf += v ? 't' : 'f';
          else
            buf.append(num, std::to_chars(num, num + sizeof num, v).ptr);
          break;
        }
        case SQLITE_FLOAT:
          buf.append(num, std::to_chars(num, num + sizeof num, sqlite3_column_double(st, c)).ptr);
          break;
        default:
          AppendEscaped(buf, sqlite3_column_text(st, c), sqlite3_column_bytes(st, c));
      }
    }
    buf += '\n';
    if (buf.size() >= 256 * 1024) {
      if (PQputCopyData(pg, buf.data(), static_cast<int>(buf.size())) != 1)
        throw std::runtime_error(PQerrorMessage(pg));
      buf.clear();
    }
  }
  if (!buf.empty() && PQputCopyData(pg, buf.data(), static_cast<int>(buf.size())) != 1)
    throw std::runtime_error(PQerrorMessage(pg));
  if (PQputCopyEnd(pg, nullptr) != 1) throw std::runtime_error(PQerrorMessage(pg));
  while (PGresult* r = PQgetResult(pg)) {
    const bool ok = PQresultStatus(r) == PGRES_COMMAND_OK;
    PQclear(r);
    if (!ok) throw std::runtime_error(PQerrorMessage(pg));
  }
}

void BM_PostgreSQL_BareCopy(benchmark::State& state) {
  if (!kPg.Available()) return state.SkipWithError("DBTEST_PG_PORT is not set");
  SourcePath();
  auto cn = kPg.Open();
  const std::string conninfo =
      "host=" + Env("DBTEST_PG_HOST", "127.0.0.1") + " port=" + Env("DBTEST_PG_PORT") +
      " dbname=" + Env("DBTEST_PG_DB", "dbtest") + " user=" + Env("DBTEST_PG_USER", "dbtest") +
      " password=" + Env("DBTEST_PG_PASSWORD");
  PGconn* pg = PQconnectdb(conninfo.c_str());
  if (PQstatus(pg) != CONNECTION_OK) {
    PQfinish(pg);
    return state.SkipWithError("cannot connect to PostgreSQL");
  }
  for (auto _ : state) {
    state.PauseTiming();
    kPg.Reset(*cn);
    state.ResumeTiming();
    BareCopy(pg);
  }
  PQfinish(pg);
  DropServerTable(cn);
  Finish(state, Rows());
}

void BM_PostgreSQL_Stream(benchmark::State& state) {
  RunStream(state, kPg);
}

void BM_SQLite_BareAttach(benchmark::State& state) {
  SourcePath();
  auto cn = kSqlite.Open();
  for (auto _ : state) {
    state.PauseTiming();
    kSqlite.Reset(*cn);
    cn->Close();
    sqlite3* db = nullptr;
    sqlite3_open(TargetPath().c_str(), &db);
    state.ResumeTiming();
    const std::string sql = "ATTACH DATABASE '" + SourcePath() +
                            "' AS src; BEGIN; INSERT INTO main.tblCalls SELECT * FROM "
                            "src.tblCalls; COMMIT; DETACH DATABASE src;";
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
      state.SkipWithError(sqlite3_errmsg(db));
    state.PauseTiming();
    sqlite3_close(db);
    cn->Open();
    state.ResumeTiming();
  }
  Finish(state, Rows());
}

void BM_SQLite_Stream(benchmark::State& state) {
  RunStream(state, kSqlite);
}

// The values of the current source row as parameters row * columns ... of `ps`, as sqlite3
// gives them.
void BindRow(zt::PreparedStatement& ps, sqlite3_stmt* st, int row, int n) {
  for (int c = 0; c < n; ++c) {
    const int p = row * n + c;
    switch (sqlite3_column_type(st, c)) {
      case SQLITE_NULL:
        ps.Bind(p, zt::Variant::Null());
        break;
      case SQLITE_INTEGER:
        if (IsBoolean(c))
          ps.Bind(p, sqlite3_column_int64(st, c) != 0);
        else
          ps.Bind(p, static_cast<std::int64_t>(sqlite3_column_int64(st, c)));
        break;
      case SQLITE_FLOAT:
        ps.Bind(p, sqlite3_column_double(st, c));
        break;
      default:
        ps.Bind(p, std::string(reinterpret_cast<const char*>(sqlite3_column_text(st, c)),
                               static_cast<std::size_t>(sqlite3_column_bytes(st, c))));
    }
  }
}

// Multi-row INSERTs of 250 rows, prepared once, the values bound as they come from sqlite3.
void BM_MariaDB_BareInsert(benchmark::State& state) {
  if (!kMaria.Available()) return state.SkipWithError("DBTEST_MY_PORT is not set");
  SourcePath();
  auto cn = kMaria.Open();
  const int n = static_cast<int>(WorkloadTableNamed("tblCalls").columns.size());
  constexpr int kBatch = 250;
  auto text = [&](int rows) {
    std::string row = "(";
    for (int c = 0; c < n; ++c) row += c ? ", ?" : "?";
    row += ")";
    std::string sql = "INSERT INTO tblCalls VALUES ";
    for (int r = 0; r < rows; ++r) sql += (r ? ", " : "") + row;
    return sql;
  };
  for (auto _ : state) {
    state.PauseTiming();
    kMaria.Reset(*cn);
    state.ResumeTiming();
    cn->BeginTrans();
    {
      zt::PreparedStatement full(*cn, text(kBatch));
      SourceRows src;
      int in_batch = 0;
      while (src.Next()) {
        BindRow(full, src.get(), in_batch, n);
        if (++in_batch == kBatch) {
          full.Execute();
          in_batch = 0;
        }
      }
      // The shorter last batch: its rows are read again rather than kept.
      if (in_batch > 0) {
        zt::PreparedStatement last(*cn, text(in_batch));
        SourceRows again;
        for (std::int64_t skip = Rows() - in_batch; skip > 0; --skip) again.Next();
        for (int r = 0; r < in_batch && again.Next(); ++r) BindRow(last, again.get(), r, n);
        last.Execute();
      }
    }
    cn->CommitTrans();
  }
  DropServerTable(cn);
  Finish(state, Rows());
}

void BM_MariaDB_Stream(benchmark::State& state) {
  RunStream(state, kMaria);
}

// A Connector/C session of its own to the test server, for the bare baselines.
MYSQL* BareMaria() {
  MYSQL* my = mysql_init(nullptr);
  const unsigned local = 1;
  mysql_optionsv(my, MYSQL_OPT_LOCAL_INFILE, &local);
  mysql_optionsv(my, MYSQL_SET_CHARSET_NAME, "utf8mb4");
  if (!mysql_real_connect(
          my, Env("DBTEST_MY_HOST", "127.0.0.1").c_str(), Env("DBTEST_MY_USER", "dbtest").c_str(),
          Env("DBTEST_MY_PASSWORD").c_str(), Env("DBTEST_MY_DB", "dbtest").c_str(),
          static_cast<unsigned>(std::atoi(Env("DBTEST_MY_PORT").c_str())), nullptr, 0))
    throw std::runtime_error(mysql_error(my));
  return my;
}

// The engine's own bulk path: LOAD DATA LOCAL INFILE of a tab-separated file of the rows,
// written beforehand (timer paused) straight from sqlite3.
void BM_MariaDB_BareLoadData(benchmark::State& state) {
  if (!kMaria.Available()) return state.SkipWithError("DBTEST_MY_PORT is not set");
  SourcePath();
  const std::string file = TempPath("calls.tsv");
  {
    std::FILE* f = std::fopen(file.c_str(), "w");
    SourceRows src;
    while (src.Next()) {
      for (int c = 0; c < src.Columns(); ++c) {
        if (c) std::fputc('\t', f);
        if (sqlite3_column_type(src.get(), c) == SQLITE_NULL) {
          std::fputs("\\N", f);
          continue;
        }
        const char* text = reinterpret_cast<const char*>(sqlite3_column_text(src.get(), c));
        if (IsBoolean(c)) text = sqlite3_column_int64(src.get(), c) ? "1" : "0";
        for (const char* p = text; *p; ++p) {
          if (*p == '\\' || *p == '\t' || *p == '\n') std::fputc('\\', f);
          std::fputc(*p == '\t' ? 't' : *p == '\n' ? 'n' : *p, f);
        }
      }
      std::fputc('\n', f);
    }
    std::fclose(f);
  }
  auto cn = kMaria.Open();
  MYSQL* my = BareMaria();
  std::string bits, columns;
  int c = 0;
  for (const auto& col : WorkloadTableNamed("tblCalls").columns) {
    const std::string var = "@v" + std::to_string(c);
    columns += (columns.empty() ? "" : ", ") + (IsBoolean(c) ? var : "`" + col.name + "`");
    if (IsBoolean(c))
      bits += (bits.empty() ? " SET " : ", ") + ("`" + col.name + "` = " + var + " <> 0");
    ++c;
  }
  const std::string sql = "LOAD DATA LOCAL INFILE '" + file +
                          "' INTO TABLE tblCalls CHARACTER SET utf8mb4 FIELDS TERMINATED BY '\\t' "
                          "LINES TERMINATED BY '\\n' (" +
                          columns + ")" + bits;
  for (auto _ : state) {
    state.PauseTiming();
    kMaria.Reset(*cn);
    state.ResumeTiming();
    if (mysql_real_query(my, sql.data(), sql.size()) != 0)
      return state.SkipWithError(mysql_error(my));
    if (static_cast<std::int64_t>(mysql_affected_rows(my)) != Rows())
      return state.SkipWithError("LOAD DATA did not take every row");
  }
  mysql_close(my);
  std::filesystem::remove(file);
  DropServerTable(cn);
  Finish(state, Rows());
}

// MariaDB -> SQLite. The table is loaded on the server first (timer paused); the baseline reads
// it with mysql_use_result and writes each row into the SQLite file with one prepared INSERT,
// values bound as the text the server sends, in one transaction.
void LoadMariaSource() {
  auto cn = kMaria.Open();
  kMaria.Reset(*cn);
  zt::schema::StreamCopyOptions options;
  auto src = std::make_shared<zt::Connection>();
  src->Open(SqliteConnectionString(SourcePath()));
  zt::schema::StreamTableRows(src, cn, "tblCalls", options);
}

void BM_MariaDBToSQLite_BareUseResult(benchmark::State& state) {
  if (!kMaria.Available()) return state.SkipWithError("DBTEST_MY_PORT is not set");
  SourcePath();
  LoadMariaSource();
  MYSQL* my = BareMaria();
  for (auto _ : state) {
    state.PauseTiming();
    {
      auto cn = kSqlite.Open();
      kSqlite.Reset(*cn);
    }
    state.ResumeTiming();
    sqlite3* db = nullptr;
    sqlite3_open(TargetPath().c_str(), &db);
    sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
    const std::string q = "SELECT * FROM tblCalls";
    mysql_real_query(my, q.data(), q.size());
    MYSQL_RES* r = mysql_use_result(my);
    const unsigned n = mysql_num_fields(r);
    std::string ins = "INSERT INTO tblCalls VALUES (";
    for (unsigned i = 0; i < n; ++i) ins += i ? ", ?" : "?";
    ins += ")";
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, ins.c_str(), -1, &st, nullptr);
    while (MYSQL_ROW row = mysql_fetch_row(r)) {
      const unsigned long* len = mysql_fetch_lengths(r);
      for (unsigned i = 0; i < n; ++i) {
        if (row[i])
          sqlite3_bind_text(st, static_cast<int>(i + 1), row[i], static_cast<int>(len[i]),
                            SQLITE_STATIC);
        else
          sqlite3_bind_null(st, static_cast<int>(i + 1));
      }
      sqlite3_step(st);
      sqlite3_reset(st);
    }
    mysql_free_result(r);
    sqlite3_finalize(st);
    sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
    sqlite3_close(db);
  }
  mysql_close(my);
  Finish(state, Rows());
}

// Runs ztdb with `args` (stdout and stderr dropped), `password_variable` set to `password` when
// given. Returns the process's peak resident set in MB, or -1 when it failed.
double RunZtdbProcess(std::vector<std::string> args, const char* password_variable,
                      const std::string& password) {
  args.insert(args.begin(), ZT_ZTDB);
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    if (!password.empty()) ::setenv(password_variable, password.c_str(), 1);
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, 1);
    ::dup2(null, 2);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  int status = 0;
  rusage u{};
  ::wait4(pid, &status, 0, &u);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return static_cast<double>(u.ru_maxrss) / 1024.0;
}

// `ztdb copy mysql://... target.db --tables tblCalls --replace`, from the table loaded above.
void BM_MariaDBToSQLite_Ztdb(benchmark::State& state) {
  if (!kMaria.Available()) return state.SkipWithError("DBTEST_MY_PORT is not set");
  const std::string url = "mysql://" + Env("DBTEST_MY_USER") + "@" + Env("DBTEST_MY_HOST") + ":" +
                          Env("DBTEST_MY_PORT") + "/" + Env("DBTEST_MY_DB");
  double peak_mb = 0;
  for (auto _ : state) {
    const double mb =
        RunZtdbProcess({"copy", url, TargetPath(), "--tables", "tblCalls", "--replace"},
                       "ZTDB_PASSWORD", Env("DBTEST_MY_PASSWORD"));
    if (mb < 0) return state.SkipWithError("ztdb copy failed");
    peak_mb = std::max(peak_mb, mb);
  }
  DropServerTable(kMaria.Open());
  Finish(state, Rows());
  state.counters["max_rss_mb"] = peak_mb;
}

// The whole `ztdb copy SOURCE TARGET --tables tblCalls --replace` as an administrator runs it: a
// process of its own (start-up, connections, the count of the source rows, the structure and the
// rename included). max_rss_mb is then the ztdb process's peak.
void RunZtdb(benchmark::State& state, const Target& t, bool verify = false) {
  if (!t.Available()) return state.SkipWithError((t.prefix + "_PORT is not set").c_str());
  SourcePath();
  std::string url, password;
  if (t.prefix.empty()) {
    url = TargetPath();
  } else {
    auto e = [&](const char* suffix) { return Env((t.prefix + suffix).c_str()); };
    url = std::string(t.name == "PostgreSQL" ? "postgresql" : "mysql") + "://" + e("_USER") + "@" +
          e("_HOST") + ":" + e("_PORT") + "/" + e("_DB");
    password = e("_PASSWORD");
  }
  {
    auto cn = t.Open();  // an empty table to start from, as the other runs have
    t.Reset(*cn);
  }
  double peak_mb = 0;
  for (auto _ : state) {
    std::vector<std::string> args = {"copy",     SourcePath(), url,
                                     "--tables", "tblCalls",   "--replace"};
    if (verify) args.push_back("--verify");
    const double mb = RunZtdbProcess(args, "ZTDB_TARGET_PASSWORD", password);
    if (mb < 0) return state.SkipWithError("ztdb copy failed");
    peak_mb = std::max(peak_mb, mb);
  }
  if (!t.prefix.empty()) DropServerTable(t.Open());
  Finish(state, Rows());
  state.counters["max_rss_mb"] = peak_mb;
}

void BM_PostgreSQL_Ztdb(benchmark::State& state) {
  RunZtdb(state, kPg);
}
void BM_SQLite_Ztdb(benchmark::State& state) {
  RunZtdb(state, kSqlite);
}
void BM_MariaDB_Ztdb(benchmark::State& state) {
  RunZtdb(state, kMaria);
}
// The same with --verify: what verifying costs is the difference to the run without it.
void BM_PostgreSQL_ZtdbVerify(benchmark::State& state) {
  RunZtdb(state, kPg, true);
}
void BM_SQLite_ZtdbVerify(benchmark::State& state) {
  RunZtdb(state, kSqlite, true);
}

#define ZT_COPY_BENCH(fn) \
  BENCHMARK(fn)->Iterations(1)->Repetitions(1)->UseRealTime()->Unit(benchmark::kMillisecond)

ZT_COPY_BENCH(BM_PostgreSQL_BareCopy);
ZT_COPY_BENCH(BM_PostgreSQL_Stream);
ZT_COPY_BENCH(BM_PostgreSQL_Ztdb);
ZT_COPY_BENCH(BM_PostgreSQL_ZtdbVerify);
ZT_COPY_BENCH(BM_SQLite_BareAttach);
ZT_COPY_BENCH(BM_SQLite_Stream);
ZT_COPY_BENCH(BM_SQLite_Ztdb);
ZT_COPY_BENCH(BM_SQLite_ZtdbVerify);
ZT_COPY_BENCH(BM_MariaDB_BareInsert);
ZT_COPY_BENCH(BM_MariaDB_BareLoadData);
ZT_COPY_BENCH(BM_MariaDB_Stream);
ZT_COPY_BENCH(BM_MariaDB_Ztdb);
ZT_COPY_BENCH(BM_MariaDBToSQLite_BareUseResult);
ZT_COPY_BENCH(BM_MariaDBToSQLite_Ztdb);

}  // namespace

BENCHMARK_MAIN();
