// The engines the tests run on, each described once: SQLite always; PostgreSQL and MariaDB when
// the project's test script has started them (DBTEST_PG_*, DBTEST_MY_*); SQL Server through the
// scripted driver, which records the statement texts instead of running them.
//
// A suite that works on every engine takes an `Engine` as its parameter and asks it what it
// needs (a connection string, a configured data store, the column types, a quirk) instead of
// being copied per engine. With ZT_REQUIRE_ENGINES=1 (CI) a live engine that is not configured
// fails its tests instead of skipping them.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "zt/datastore.h"
#include "zt/platform.h"

namespace zt::testing {

inline bool EnginesRequired() {
  const char* v = std::getenv("ZT_REQUIRE_ENGINES");
  return v && std::string(v) == "1";
}

inline std::string EnvOr(const std::string& name, const std::string& fallback = {}) {
  const char* v = std::getenv(name.c_str());
  return v ? std::string(v) : fallback;
}

struct Engine {
  // Who it is: the name the driver reports, the data store's provider type, and the provider
  // a connection string names to reach it.
  std::string name{};
  std::int32_t provider_type = 0;
  std::string provider{};
  // DBTEST_PG / DBTEST_MY for a server the test script starts; "" for the embedded engine and
  // for the scripted one.
  std::string env_prefix{};
  // Statements go to a DriverScript (registered for `provider`), not to an engine: tests check
  // what was sent, not what happened.
  bool scripted = false;

  // Declared types of a probe table's columns on this engine.
  std::string t_int{}, t_text50{}, t_memo{}, t_double{}, t_money{}, t_bool{}, t_date{};
  // ADO codes the engine reports for the memo, money and date columns.
  std::int32_t memo_code = 0, money_code = 0, date_code = 0;
  bool has_schemas = false;  // TABLE_SCHEMA holds a name (else Null)
  // Server engines: how to learn this session's id and end it from another session.
  std::string session_id_sql{}, kill_sql{};

  // Quirks the engine-neutral suites branch on.
  bool is_file = false;  // one file: no server, no roster, no database to create over a link
  // What starts a comment to the end of the line on this engine, beyond "--" (MariaDB's "#").
  std::string line_comment = "--";
  // The ODBC driver a data store of this engine names, "" for the provider type's default.
  std::string odbc_driver{};

  bool Live() const { return !scripted; }
  bool Available() const { return env_prefix.empty() || !Env("_PORT").empty(); }

  std::string Env(const std::string& suffix, const std::string& fallback = {}) const {
    return EnvOr(env_prefix + suffix, fallback);
  }
  std::string Host() const { return Env("_HOST", "127.0.0.1"); }
  std::string Port() const { return Env("_PORT", "0"); }
  std::string Database() const { return Env("_DB", "dbtest"); }
  std::string User() const { return Env("_USER", "dbtest"); }
  std::string Password() const { return Env("_PASSWORD"); }

  // A connection string for a bare Connection: the file `sqlite_file` for SQLite, the server's
  // database otherwise (the scripted engine is reached through its provider name).
  std::string ConnectionString(const std::string& sqlite_file) const {
    if (is_file) return "Provider=" + provider + ";Data Source=" + sqlite_file + ";";
    if (scripted) return "Provider=" + provider + ";Data Source=HDSRV;Database=HelpDesk;";
    return "Provider=" + provider + ";Data Source=" + Host() + ";Port=" + Port() +
           ";Database=" + Database() + ";User ID=" + User() + ";Password=" + Password() + ";";
  }

  // The same server database through the generic ODBC bridge and the ODBC driver `driver`.
  std::string OdbcBridgeConnectionString(const std::string& driver) const {
    return "Provider=MSDASQL;Driver={" + driver + "};Server=" + Host() + ";Port=" + Port() +
           ";Database=" + Database() + ";Uid=" + User() + ";Pwd=" + Password();
  }

  // A data store of this engine as an administrator would configure it: SQLite in `folder`
  // under `file`; the server's test database (port with the server name); for the scripted
  // SQL Server a made-up server, database and login.
  std::shared_ptr<CZtDataStore> MakeStore(const std::string& folder,
                                          const std::string& file = "help.db") const {
    auto ds = std::make_shared<CZtDataStore>();
    ds->GeneralProviderType(provider_type);
    if (!odbc_driver.empty()) ds->ODBCDriver(odbc_driver);
    if (is_file) {
      ds->Location(folder);
      ds->DataStoreName(file);
    } else if (scripted) {
      ds->Location("HDSRV");
      ds->DataStoreName("HelpDesk");
      ds->UserName("tessel");
      ds->Password("Scripted#Pw1");
    } else {
      ds->Location(Host() + "," + Port());
      ds->DataStoreName(Database());
      ds->UserName(User());
      ds->Password(Password());
    }
    return ds;
  }
};

inline void PrintTo(const Engine& e, std::ostream* os) {
  *os << e.name;
}

// Every engine, live and scripted.
inline const std::vector<Engine>& TestEngines() {
  static const std::vector<Engine> engines = [] {
    Engine sqlite{.name = "SQLite",
                  .provider_type = kProviderJet,
                  .provider = "Microsoft.Jet.OLEDB.4.0",
                  .t_int = "LONG",
                  .t_text50 = "TEXT(50)",
                  .t_memo = "MEMO",
                  .t_double = "DOUBLE",
                  .t_money = "CURRENCY",
                  .t_bool = "BIT",
                  .t_date = "DATETIME",
                  .memo_code = 203,
                  .money_code = 6,
                  .date_code = 7,
                  .is_file = true};
    Engine pg{.name = "PostgreSQL",
              .provider_type = kProviderPostgreSql,
              .provider = "PostgreSQL",
              .env_prefix = "DBTEST_PG",
              .t_int = "INTEGER",
              .t_text50 = "VARCHAR(50)",
              .t_memo = "TEXT",
              .t_double = "DOUBLE PRECISION",
              .t_money = "NUMERIC(19,4)",
              .t_bool = "BOOLEAN",
              .t_date = "TIMESTAMP",
              .memo_code = 203,
              .money_code = 131,
              .date_code = 135,
              .has_schemas = true,
              .session_id_sql = "SELECT pg_backend_pid()",
              .kill_sql = "SELECT pg_terminate_backend(%1)"};
    Engine maria{.name = "MariaDB",
                 .provider_type = kProviderMySql,
                 .provider = "MySQLProv",
                 .env_prefix = "DBTEST_MY",
                 .t_int = "INT",
                 .t_text50 = "VARCHAR(50)",
                 .t_memo = "LONGTEXT",
                 .t_double = "DOUBLE",
                 .t_money = "DECIMAL(19,4)",
                 .t_bool = "BIT(1)",
                 .t_date = "DATETIME",
                 .memo_code = 203,
                 .money_code = 131,
                 .date_code = 135,
                 .session_id_sql = "SELECT CONNECTION_ID()",
                 .kill_sql = "KILL %1",
                 .line_comment = "#",
                 .odbc_driver = "MariaDB Unicode"};
    Engine mssql{.name = "SQL Server",
                 .provider_type = kProviderSqlServer,
                 .provider = "MSOLEDBSQL",
                 .scripted = true,
                 .t_int = "int",
                 .t_text50 = "nvarchar(50)",
                 .t_memo = "ntext",
                 .t_double = "float",
                 .t_money = "money",
                 .t_bool = "bit",
                 .t_date = "datetime",
                 .memo_code = 203,
                 .money_code = 6,
                 .date_code = 135,
                 .has_schemas = true};
    return std::vector<Engine>{sqlite, pg, maria, mssql};
  }();
  return engines;
}

// The engines that run statements for real.
inline std::vector<Engine> LiveEngines() {
  std::vector<Engine> out;
  for (const Engine& e : TestEngines())
    if (e.Live()) out.push_back(e);
  return out;
}

// The engine called `name` (a test's own choice among the list); throws when there is none.
inline const Engine& EngineNamed(const std::string& name) {
  for (const Engine& e : TestEngines())
    if (e.name == name) return e;
  throw std::invalid_argument("no test engine " + name);
}

// A place of one test's own on engine `e`: a new folder `tag`_<pid>_<engine> under the
// temporary folder (the caller removes it), and a connection there: to the SQLite file `file` in
// that folder, or to the server's shared test database.
struct Scratch {
  std::filesystem::path dir;
  std::shared_ptr<Connection> cn;
};
inline Scratch OpenScratch(const Engine& e, const std::string& tag,
                           const std::string& file = "scratch.db") {
  Scratch s;
  s.dir = std::filesystem::temp_directory_path() /
          (tag + "_" + std::to_string(::getpid()) + "_" + e.name.substr(0, 3));
  std::filesystem::create_directories(s.dir);
  s.cn = std::make_shared<Connection>();
  s.cn->Open(e.ConnectionString((s.dir / file).string()));
  return s;
}

// For INSTANTIATE_TEST_SUITE_P: the engine's name, letters and digits only, ends the test's name.
struct EngineName {
  std::string operator()(const ::testing::TestParamInfo<Engine>& info) const {
    std::string out;
    for (char c : info.param.name)
      if (std::isalnum(static_cast<unsigned char>(c))) out += c;
    return out;
  }
};

}  // namespace zt::testing

// Skips the test when the engine is missing, or fails it under ZT_REQUIRE_ENGINES=1.
#define ZT_NEED_ENGINE(available, what)                                       \
  do {                                                                        \
    if (!(available)) {                                                       \
      if (::zt::testing::EnginesRequired()) FAIL() << what << " is required"; \
      GTEST_SKIP() << what << " is not available";                            \
    }                                                                         \
  } while (0)
