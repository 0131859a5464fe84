// Reading and inserting SQLite rows of ten mixed columns: through Recordset and
// PreparedStatement, and through a bare sqlite3_step loop doing the same work. The layer is
// meant to stay within half of the bare speed. ZT_BENCH_ROWS sets the row count (1,000,000).
#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "zt/platform.h"

namespace {

std::int64_t Rows() {
  const char* v = std::getenv("ZT_BENCH_ROWS");
  return v ? std::atoll(v) : 1000000;
}

std::string BenchPath(const char* name) {
  return (std::filesystem::temp_directory_path() /
          ("zt_bench_" + std::to_string(::getpid()) + "_" + name + ".db"))
      .string();
}

const char* kCreate =
    "CREATE TABLE t (id INTEGER PRIMARY KEY, n LONG, x DOUBLE, code TEXT(20), d DATETIME, "
    "f BIT, c CURRENCY, label TEXT(50), m LONG, y DOUBLE)";
const char* kInsert = "INSERT INTO t VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

std::string Code(std::int64_t i) {
  return "CODE-" + std::to_string(i % 100000);
}
std::string Label(std::int64_t i) {
  return "label text of row " + std::to_string(i);
}

// The bare loop: one prepared INSERT, ten binds per row, one transaction.
void BareInsert(sqlite3* db, std::int64_t rows) {
  sqlite3_exec(db, "BEGIN", nullptr, nullptr, nullptr);
  sqlite3_stmt* st = nullptr;
  sqlite3_prepare_v2(db, kInsert, -1, &st, nullptr);
  for (std::int64_t i = 1; i <= rows; ++i) {
    const std::string code = Code(i), label = Label(i);
    sqlite3_bind_int64(st, 1, i);
    sqlite3_bind_int64(st, 2, i * 3);
    sqlite3_bind_double(st, 3, static_cast<double>(i) / 7);
    sqlite3_bind_text(st, 4, code.data(), static_cast<int>(code.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(st, 5, "2024-05-06 07:08:09", 19, SQLITE_STATIC);
    sqlite3_bind_int(st, 6, i % 2 ? -1 : 0);
    sqlite3_bind_double(st, 7, 12.5);
    sqlite3_bind_text(st, 8, label.data(), static_cast<int>(label.size()), SQLITE_TRANSIENT);
    sqlite3_bind_int64(st, 9, i % 1000);
    sqlite3_bind_double(st, 10, 0.25);
    sqlite3_step(st);
    sqlite3_reset(st);
  }
  sqlite3_finalize(st);
  sqlite3_exec(db, "COMMIT", nullptr, nullptr, nullptr);
}

// A file with the rows, made once for both read benchmarks.
const std::string& ReadFile() {
  static const std::string path = [] {
    const std::string p = BenchPath("read");
    std::filesystem::remove(p);
    sqlite3* db = nullptr;
    sqlite3_open(p.c_str(), &db);
    sqlite3_exec(db, kCreate, nullptr, nullptr, nullptr);
    BareInsert(db, Rows());
    sqlite3_close(db);
    return p;
  }();
  return path;
}

void BM_ReadBareSqlite(benchmark::State& state) {
  sqlite3* db = nullptr;
  sqlite3_open(ReadFile().c_str(), &db);
  std::int64_t rows = 0;
  for (auto _ : state) {
    sqlite3_stmt* st = nullptr;
    sqlite3_prepare_v2(db, "SELECT * FROM t", -1, &st, nullptr);
    std::int64_t sum = 0;
    while (sqlite3_step(st) == SQLITE_ROW) {
      for (int c = 0; c < 10; ++c) {
        switch (sqlite3_column_type(st, c)) {
          case SQLITE_INTEGER:
            sum += sqlite3_column_int64(st, c);
            break;
          case SQLITE_FLOAT:
            sum += static_cast<std::int64_t>(sqlite3_column_double(st, c));
            break;
          case SQLITE_TEXT: {
            const unsigned char* p = sqlite3_column_text(st, c);
            const std::string s(reinterpret_cast<const char*>(p),
                                static_cast<std::size_t>(sqlite3_column_bytes(st, c)));
            sum += static_cast<std::int64_t>(s.size());
            break;
          }
          default:
            break;
        }
      }
      ++rows;
    }
    sqlite3_finalize(st);
    benchmark::DoNotOptimize(sum);
  }
  state.counters["rows/s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
  sqlite3_close(db);
}

void BM_ReadRecordset(benchmark::State& state) {
  auto cn = std::make_shared<zt::Connection>();
  cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + ReadFile() + ";");
  std::int64_t rows = 0;
  for (auto _ : state) {
    zt::Recordset rs;
    rs.Open("SELECT * FROM t", cn, zt::ado::adOpenForwardOnly, zt::ado::adLockReadOnly);
    std::int64_t sum = 0;
    zt::FieldsCollection& fields = rs.GetFields();
    while (!rs.Eof()) {
      for (int c = 0; c < 10; ++c) {
        const zt::Variant v = fields.Item(c).Value();
        if (const std::string* s = v.AsString())
          sum += static_cast<std::int64_t>(s->size());
        else
          sum += static_cast<std::int64_t>(v.ToDouble());
      }
      ++rows;
      rs.MoveNext();
    }
    benchmark::DoNotOptimize(sum);
  }
  state.counters["rows/s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}

void BM_InsertBareSqlite(benchmark::State& state) {
  std::int64_t rows = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string p = BenchPath("insert_bare");
    std::filesystem::remove(p);
    sqlite3* db = nullptr;
    sqlite3_open(p.c_str(), &db);
    sqlite3_exec(db, kCreate, nullptr, nullptr, nullptr);
    state.ResumeTiming();
    BareInsert(db, Rows());
    rows += Rows();
    state.PauseTiming();
    sqlite3_close(db);
    std::filesystem::remove(p);
    state.ResumeTiming();
  }
  state.counters["rows/s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}

void BM_InsertPreparedStatement(benchmark::State& state) {
  std::int64_t rows = 0;
  const zt::Variant when = zt::Date::FromParts(2024, 5, 6, 7, 8, 9);
  for (auto _ : state) {
    state.PauseTiming();
    const std::string p = BenchPath("insert_layer");
    std::filesystem::remove(p);
    auto cn = std::make_shared<zt::Connection>();
    cn->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + p + ";");
    cn->Execute(kCreate);
    state.ResumeTiming();
    {
      zt::PreparedStatement ins(*cn, kInsert);
      cn->BeginTrans();
      for (std::int64_t i = 1; i <= Rows(); ++i) {
        ins.Bind(0, i);
        ins.Bind(1, i * 3);
        ins.Bind(2, static_cast<double>(i) / 7);
        ins.Bind(3, Code(i));
        ins.Bind(4, when);
        ins.Bind(5, i % 2 == 1);
        ins.Bind(6, zt::Currency{125000});
        ins.Bind(7, Label(i));
        ins.Bind(8, i % 1000);
        ins.Bind(9, 0.25);
        ins.Execute();
      }
      cn->CommitTrans();
    }
    rows += Rows();
    state.PauseTiming();
    cn->Close();
    std::filesystem::remove(p);
    state.ResumeTiming();
  }
  state.counters["rows/s"] =
      benchmark::Counter(static_cast<double>(rows), benchmark::Counter::kIsRate);
}

BENCHMARK(BM_ReadBareSqlite)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadRecordset)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_InsertBareSqlite)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_InsertPreparedStatement)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
