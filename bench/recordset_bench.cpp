// RemoveDuplicateRecords against a hand-written set-based delete on the same data in the same
// run: 1,000,000 rows (ZT_BENCH_ROWS) of which 10% repeat an earlier row's three key columns.
// SQLite always; PostgreSQL when the test servers' DBTEST_PG_* variables are set. Each iteration
// starts from a fresh copy of a template table, made with the timer paused. The goal is at least
// 0.9 of the hand-written delete's speed on SQLite and 0.8 on PostgreSQL; the peak resident set
// (max_rss_mb) must not grow with the row count, as no row is read into the client.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "zt/platform.h"
#include "zt/recordset/recordset_utils.h"

namespace {

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

// Row i repeats the key of an earlier row when i is in the last tenth; keys are otherwise
// unique: a and b together name k, c rides along.
std::string KeyColumns(const std::string& i, std::int64_t rows) {
  const std::string unique = std::to_string(rows - rows / 10);
  const std::string k = "(CASE WHEN " + i + " < " + unique + " THEN " + i + " ELSE (" + i +
                        " * 7919) % " + unique + " END)";
  return k + " % 1000, 'key ' || CAST(" + k + " / 1000 AS VARCHAR(20)), " + k + " % 7";
}

struct Engine {
  std::string name;
  std::string connection_string;
  std::string row_identity;
  std::string fill;  // fills zt_tmpl
};

std::shared_ptr<zt::Connection> Open(const Engine& e) {
  auto cn = std::make_shared<zt::Connection>();
  cn->Open(e.connection_string);
  return cn;
}

const std::string& SqlitePath() {
  static const std::string path = (std::filesystem::temp_directory_path() /
                                   ("zt_bench_dedupe_" + std::to_string(::getpid()) + ".db"))
                                      .string();
  return path;
}

Engine Sqlite() {
  const std::string& path = SqlitePath();
  const std::string n = std::to_string(Rows());
  return {"SQLite", "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path + ";", "rowid",
          "INSERT INTO zt_tmpl (a, b, c) WITH RECURSIVE s(i) AS (SELECT 0 UNION ALL SELECT i + 1 "
          "FROM s WHERE i < " +
              n + " - 1) SELECT " + KeyColumns("i", Rows()) + " FROM s"};
}

Engine Postgres() {
  return {"PostgreSQL",
          "Provider=PostgreSQL;Data Source=" + Env("DBTEST_PG_HOST", "127.0.0.1") +
              ";Port=" + Env("DBTEST_PG_PORT") + ";Database=" + Env("DBTEST_PG_DB", "dbtest") +
              ";User ID=" + Env("DBTEST_PG_USER", "dbtest") +
              ";Password=" + Env("DBTEST_PG_PASSWORD") + ";",
          "ctid",
          "INSERT INTO zt_tmpl (a, b, c) SELECT " + KeyColumns("i", Rows()) +
              " FROM generate_series(CAST(0 AS BIGINT), " + std::to_string(Rows() - 1) + ") AS g(i)"};
}

// The template table, made once per engine and process.
void MakeTemplate(const Engine& e, zt::Connection& cn) {
  static std::string made;
  if (made.find("|" + e.name) != std::string::npos) return;
  try {
    cn.Execute("DROP TABLE zt_tmpl");
  } catch (const zt::ZtError&) {
  }
  cn.Execute("CREATE TABLE zt_tmpl (a INTEGER, b VARCHAR(30), c INTEGER)");
  cn.Execute(e.fill);
  made += "|" + e.name;
}

void FreshCopy(const Engine& e, zt::Connection& cn) {
  try {
    cn.Execute("DROP TABLE zt_t");
  } catch (const zt::ZtError&) {
  }
  cn.Execute("CREATE TABLE zt_t AS SELECT * FROM zt_tmpl");
  // A fresh PostgreSQL table makes its first reader set every row's hint bits, and autovacuum
  // may start on it in the middle of a run: vacuumed first, both contenders meet the same table.
  if (e.name == "PostgreSQL") cn.Execute("VACUUM ANALYZE zt_t");
}

void Run(benchmark::State& state, const Engine& e, bool library) {
  if (e.name == "PostgreSQL" && Env("DBTEST_PG_PORT").empty()) {
    state.SkipWithError("DBTEST_PG_PORT is not set");
    return;
  }
  auto cn = Open(e);
  MakeTemplate(e, *cn);
  zt::CZtRecordMgr mgr;
  const zt::Variant columns = zt::Variant::Array({"a", "b", "c"});
  const std::string hand =
      "DELETE FROM zt_t WHERE " + e.row_identity + " IN (SELECT " + e.row_identity +
      " FROM (SELECT " + e.row_identity +
      ", row_number() OVER (PARTITION BY a, b, c) AS rn FROM zt_t) AS d WHERE rn > 1)";
  std::int64_t deleted = 0;
  for (auto _ : state) {
    state.PauseTiming();
    FreshCopy(e, *cn);
    state.ResumeTiming();
    if (library) {
      mgr.RemoveDuplicateRecords("zt_t", cn, columns);
      deleted = mgr.LastRecordsDeleted();
    } else {
      cn->Execute(hand, &deleted);
    }
  }
  state.counters["deleted"] = static_cast<double>(deleted);
  state.counters["max_rss_mb"] = MaxRssMb();
  cn->Execute("DROP TABLE zt_t");
}

void BM_SqliteHandWritten(benchmark::State& s) {
  Run(s, Sqlite(), false);
}
void BM_SqliteRemoveDuplicateRecords(benchmark::State& s) {
  Run(s, Sqlite(), true);
}
void BM_PgHandWritten(benchmark::State& s) {
  Run(s, Postgres(), false);
}
void BM_PgRemoveDuplicateRecords(benchmark::State& s) {
  Run(s, Postgres(), true);
}

}  // namespace

BENCHMARK(BM_SqliteHandWritten)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SqliteRemoveDuplicateRecords)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PgHandWritten)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PgRemoveDuplicateRecords)->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove(SqlitePath());
  return 0;
}
