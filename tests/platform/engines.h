// The engines the platform suite runs on: SQLite always; PostgreSQL and MariaDB when their
// DBTEST_* variables name a server. With ZT_REQUIRE_ENGINES=1 a missing server fails the run.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "zt/platform.h"

namespace zt::testing {

// One engine with what the suite must know about it, instead of per-engine copies of tests.
struct Engine {
  std::string name;
  std::string env_prefix;  // DBTEST_PG / DBTEST_MY; "" for the embedded engine
  std::string provider;
  // Declared types of the probe table's columns on this engine.
  std::string t_int, t_text50, t_memo, t_double, t_money, t_bool, t_date;
  // ADO codes expected for the memo, money and date columns.
  std::int32_t memo_code, money_code, date_code;
  bool has_schemas;  // TABLE_SCHEMA holds a name (else Null)

  bool Available() const {
    return env_prefix.empty() || std::getenv((env_prefix + "_PORT").c_str()) != nullptr;
  }
  static std::string Env(const std::string& key, const char* fallback) {
    const char* v = std::getenv(key.c_str());
    return v ? v : fallback;
  }
  std::string ConnectionString(const std::string& sqlite_file) const {
    if (env_prefix.empty()) return "Provider=" + provider + ";Data Source=" + sqlite_file + ";";
    return "Provider=" + provider + ";Data Source=" + Env(env_prefix + "_HOST", "127.0.0.1") +
           ";Port=" + Env(env_prefix + "_PORT", "0") +
           ";Database=" + Env(env_prefix + "_DB", "dbtest") +
           ";User ID=" + Env(env_prefix + "_USER", "dbtest") +
           ";Password=" + Env(env_prefix + "_PASSWORD", "") + ";";
  }
};

inline void PrintTo(const Engine& e, std::ostream* os) {
  *os << e.name;
}

inline std::vector<Engine> AllEngines() {
  return {
      {"SQLite", "", "Microsoft.Jet.OLEDB.4.0", "LONG", "TEXT(50)", "MEMO", "DOUBLE", "CURRENCY",
       "BIT", "DATETIME", 203, 6, 7, false},
      {"PostgreSQL", "DBTEST_PG", "PostgreSQL", "INTEGER", "VARCHAR(50)", "TEXT",
       "DOUBLE PRECISION", "NUMERIC(19,4)", "BOOLEAN", "TIMESTAMP", 203, 131, 135, true},
      {"MariaDB", "DBTEST_MY", "MySQLProv", "INT", "VARCHAR(50)", "LONGTEXT", "DOUBLE",
       "DECIMAL(19,4)", "BIT(1)", "DATETIME", 203, 131, 135, false},
  };
}

// Base fixture: opens the engine of the test's parameter, or skips (fails when engines are
// required) when its server is not configured.
class EngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    if (!e.Available()) {
      const char* req = std::getenv("ZT_REQUIRE_ENGINES");
      if (req && std::string(req) == "1") FAIL() << e.name << " is required but not configured";
      GTEST_SKIP() << e.name << " not configured";
    }
    dir_ = std::filesystem::temp_directory_path() /
           ("zt_platform_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
    file_ = (dir_ / "test.db").string();
    cn = std::make_shared<Connection>();
    cn->Open(e.ConnectionString(file_));
  }
  void TearDown() override {
    if (cn) cn->Close();
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }

  // Creates the probe table `name` (id key, code unique text(50) not null, descr memo, qty int,
  // ratio double, price money, active bool, created date) and fills `rows` rows:
  // id i, code "C<i>", qty i*10, ratio i/2, price i+0.25, active (i odd), created 2024-01-i.
  void MakeTable(const std::string& name, int rows) {
    const Engine& e = GetParam();
    cn->Execute("DROP TABLE IF EXISTS [" + name + "]");
    cn->Execute("CREATE TABLE [" + name + "] ([id] " + e.t_int + " NOT NULL PRIMARY KEY, [code] " +
                e.t_text50 + " NOT NULL, [descr] " + e.t_memo + ", [qty] " + e.t_int +
                ", [ratio] " + e.t_double + ", [price] " + e.t_money + ", [active] " + e.t_bool +
                ", [created] " + e.t_date + ")");
    cn->Execute("CREATE UNIQUE INDEX [ux_" + name + "_code] ON [" + name + "] ([code])");
    PreparedStatement ins(*cn, "INSERT INTO [" + name +
                                   "] ([id], [code], [descr], [qty], [ratio], [price], [active], "
                                   "[created]) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    for (int i = 1; i <= rows; ++i) {
      ins.Bind(0, i);
      ins.Bind(1, "C" + std::to_string(i));
      ins.Bind(2, i == 2 ? Variant::Null() : Variant("row " + std::to_string(i)));
      ins.Bind(3, i * 10);
      ins.Bind(4, i / 2.0);
      ins.Bind(5, Currency::FromDouble(i + 0.25));
      ins.Bind(6, i % 2 == 1);
      ins.Bind(7, Date::FromParts(2024, 1, i, 8, 30, 0));
      EXPECT_EQ(ins.Execute(), 1);
    }
  }
  std::int64_t Count(const std::string& table, const std::string& where = "") {
    auto rs = cn->Execute("SELECT COUNT(*) FROM [" + table + "]" +
                          (where.empty() ? "" : " WHERE " + where));
    return rs->Fields(0).Value().ToInt64();
  }

  std::shared_ptr<Connection> cn;
  std::filesystem::path dir_;
  std::string file_;
};

// The number of the ZtError that `fn` throws, or 0 when it throws nothing.
template <class F>
std::int32_t ErrorNumber(F&& fn) {
  try {
    fn();
  } catch (const ZtError& e) {
    return e.Number();
  }
  return 0;
}
#define ZT_ERROR_NUMBER(stmt) ::zt::testing::ErrorNumber([&] { (void)(stmt); })

inline std::int32_t Hr(std::uint32_t v) {
  return static_cast<std::int32_t>(v);
}

}  // namespace zt::testing
