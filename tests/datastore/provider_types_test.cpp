// Provider types end to end (PostgreSQL's type 32 included), values that must be quoted when
// they are handed on, and the engine's own SQL reaching servers through the scripted driver.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "platform/driver.h"
#include "support/test_env.h"
#include "zt/config.h"
#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace fs = std::filesystem;
using zt::platform::DriverScript;
using zt::platform::ScopedScriptedProvider;
using zt::platform::ScriptedAnswer;

namespace {

constexpr std::int32_t kNotSupported = static_cast<std::int32_t>(0x80040000u) + 9020;

// The number of the ZtError that `fn` throws, or 0 when it throws nothing.
template <class F>
std::int32_t ErrorNumber(F&& fn) {
  try {
    fn();
  } catch (const zt::ZtError& e) {
    return e.Number();
  }
  return 0;
}
#define ZT_ERROR_NUMBER(stmt) ErrorNumber([&] { (void)(stmt); })

class ProviderTypeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("ztpt-" + std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    env_.app_path = dir_.string();
    env_.real_sleep = false;
  }
  void TearDown() override { fs::remove_all(dir_); }

  static std::shared_ptr<zt::CZtDataStore> Store(std::int32_t type, const std::string& location,
                                                 const std::string& name) {
    auto ds = std::make_shared<zt::CZtDataStore>();
    ds->GeneralProviderType(type);
    ds->Location(location);
    ds->DataStoreName(name);
    return ds;
  }
  static bool SentContaining(const DriverScript& script, const std::string& needle) {
    for (const auto& s : script.Statements())
      if (s.find(needle) != std::string::npos) return true;
    return false;
  }

  zt::testing::RecordingEnv env_;
  fs::path dir_;
};

TEST_F(ProviderTypeTest, PostgreSqlIsTypeThirtyTwoEverywhere) {
  auto pg = Store(zt::kProviderPostgreSql, "db.example:5433", "HelpDesk");
  pg->UserName("tessel");
  pg->Password("pw");
  EXPECT_EQ(pg->ConnectionString(),
            "Provider=PostgreSQL;Data Source=db.example:5433;Database=HelpDesk;User ID=tessel;"
            "Password=pw;");
  EXPECT_EQ(pg->DAOConnectionString("", ""), "");  // no DAO view, as for Oracle
  EXPECT_EQ(pg->ODBCDriver(), "PostgreSQL Unicode");
  // The string reaches the native driver, with the port split off the server.
  const auto params = zt::platform::ParseConnectionString(pg->ConnectionString());
  EXPECT_EQ(params.driver, "postgresql");
  EXPECT_EQ(params.data_source, "db.example");
  EXPECT_EQ(params.port, 5433);
  EXPECT_EQ(params.database, "HelpDesk");

  zt::CZtProvider provider;
  EXPECT_EQ(provider.GetOLEDBProvider(32, ""), "PostgreSQL");
  EXPECT_EQ(provider.GetOLEDBProviderPrefix(32), "PostgreSQL");
  EXPECT_EQ(provider.GetCaptionName(32), "PostgreSQL");
  EXPECT_EQ(provider.GetProviderType("PostgreSQL"), 32);
  EXPECT_EQ(provider.GetProviderType("MSDASQL"), 16);  // the old order still rules
  EXPECT_EQ(provider.GetProviderType("Microsoft.Jet.OLEDB.4.0"), 1);
  EXPECT_EQ(provider.GetLatestOLEDBProvider(32), "PostgreSQL");
  for (std::int32_t bad : {0, 3, 8, 64}) {
    EXPECT_EQ(ZT_ERROR_NUMBER(provider.GetOLEDBProvider(bad, "")), kNotSupported) << bad;
    EXPECT_EQ(ZT_ERROR_NUMBER(provider.GetCaptionName(bad)), kNotSupported) << bad;
  }

  // Initialize takes 32; an unknown type is refused and changes nothing.
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->Initialize("ProviderType=32;Location=pghost;Name=Help;User=u;Password=p");
  EXPECT_EQ(ds->GeneralProviderType(), 32);
  EXPECT_EQ(ZT_ERROR_NUMBER(ds->Initialize("ProviderType=64;Location=elsewhere")), kNotSupported);
  EXPECT_EQ(ds->GeneralProviderType(), 32);
  EXPECT_EQ(ds->Location(), "pghost");

  // The tool's names for provider types, both ways.
  for (std::int32_t type : {1, 2, 4, 16, 32})
    EXPECT_EQ(zt::ProviderTypeFromName(zt::ProviderTypeName(type)), type);
  EXPECT_EQ(zt::ProviderTypeFromName("PostgreSQL"), 32);
  EXPECT_EQ(zt::ProviderTypeFromName("mariadb"), 16);
  EXPECT_EQ(zt::ProviderTypeFromName("sqlite"), 1);
  EXPECT_EQ(zt::ProviderTypeFromName("2"), 2);
  EXPECT_EQ(zt::ProviderTypeFromName("access97"), 0);
  EXPECT_EQ(zt::ProviderTypeName(64), "");
}

TEST_F(ProviderTypeTest, ValuesThatWouldEndEarlyAreQuotedWhenHandedOn) {
  // Plain values keep their exact text (the byte-for-byte cases live in the definition test).
  auto sql = Store(zt::kProviderSqlServer, "HDSRV", "Help;Desk");
  sql->UserName(" user ");
  sql->Password("p;w{d}");
  EXPECT_EQ(sql->ConnectionString(),
            "Provider=MSOLEDBSQL;Data Source=HDSRV;Database={Help;Desk};Uid={ user };"
            "Pwd={p;w{d}}};");
  auto p = zt::platform::ParseConnectionString(sql->ConnectionString());
  EXPECT_EQ(p.database, "Help;Desk");
  EXPECT_EQ(p.user, " user ");
  EXPECT_EQ(p.password, "p;w{d}");
  for (auto type : {zt::kProviderOracle, zt::kProviderMySql, zt::kProviderPostgreSql}) {
    auto ds = Store(type, "srv", "db");
    ds->UserName("u");
    ds->Password("'quoted;");
    EXPECT_EQ(zt::platform::ParseConnectionString(ds->ConnectionString()).password, "'quoted;")
        << type;
  }

  // A folder and a file name holding ";" make a Jet store that is created, opened and deleted.
  const fs::path folder = dir_ / "a;b";
  fs::create_directories(folder);
  auto jet = Store(zt::kProviderJet, folder.string(), "help;1.db");
  EXPECT_EQ(jet->ConnectionString(),
            "Provider=Microsoft.Jet.OLEDB.4.0;Data Source={" + jet->FullPath() + "}");
  jet->CreatePhysicalDataStore();
  EXPECT_TRUE(fs::exists(folder / "help;1.db"));
  auto c = jet->GetConnection(1);
  c->Execute("CREATE TABLE [t] ([n] LONG)");
  EXPECT_TRUE(jet->ValidateDataStore());
  EXPECT_GT(jet->Size(), 0);
  jet->DeletePhysicalDataStore();
  EXPECT_FALSE(fs::exists(folder / "help;1.db"));
  EXPECT_EQ(fs::directory_iterator(folder), fs::directory_iterator());  // nothing left beside
}

TEST_F(ProviderTypeTest, ServerStoresSendTheirOwnEnginesStatements) {
  // SQL Server: its system tables, and a database created from the server connection.
  auto mssql = std::make_shared<DriverScript>();
  mssql
      ->On("SELECT SUM(CAST(size AS BIGINT)) * 8192 FROM sysfiles",
           ScriptedAnswer::Rows({"size"}, {{zt::Variant(std::int64_t{81920})}}))
      .On("SELECT rtrim(hostname)",
          ScriptedAnswer::Rows({"h", "u"}, {{zt::Variant("pc1"), zt::Variant("ann")},
                                            {zt::Variant("pc1"), zt::Variant("ann")},
                                            {zt::Variant("pc2"), zt::Variant("bob")}}));
  {
    ScopedScriptedProvider sql_server("MSOLEDBSQL", mssql);
    auto ds = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
    EXPECT_EQ(ds->Size(), 81920);
    EXPECT_EQ(ds->GetUserRoster({{"pc2", "bob"}}), (std::vector<zt::RosterEntry>{{"pc1", "ann"}}));
    EXPECT_TRUE(SentContaining(*mssql, "FROM master.dbo.sysprocesses WHERE dbid = DB_ID()"));
    ds->CloseConnections();
    mssql->ClearLog();
    ds->CreatePhysicalDataStore();
    ds->DeletePhysicalDataStore();
    EXPECT_EQ(mssql->Statements(),
              (std::vector<std::string>{"CREATE DATABASE [HelpDesk]", "DROP DATABASE [HelpDesk]"}));
    for (const auto& connect : mssql->Connects()) EXPECT_EQ(connect.database, "");
  }

  // Oracle: never SQL Server's tables; a database is not created over a connection.
  auto ora = std::make_shared<DriverScript>();
  ora->Engine({"Oracle", zt::platform::ScriptedQuoting::kDoubleQuotes, false, true, "TESSEL", ""})
      .On("SELECT SUM(bytes) FROM user_segments",
          ScriptedAnswer::Rows({"b"}, {{zt::Variant(std::int64_t{4096})}}));
  {
    ScopedScriptedProvider oracle("OraOLEDB.Oracle", ora);
    auto ds = Store(zt::kProviderOracle, "ORCL", "");
    EXPECT_EQ(ds->Size(), 4096);
    ds->GetUserRoster();
    EXPECT_EQ(ZT_ERROR_NUMBER(ds->CreatePhysicalDataStore()), kNotSupported);
    for (const auto& s : ora->Statements()) {
      EXPECT_EQ(s.find("sysfiles"), std::string::npos) << s;
      EXPECT_EQ(s.find("sysprocesses"), std::string::npos) << s;
    }
    EXPECT_TRUE(SentContaining(*ora, "FROM v$session"));
  }

  // PostgreSQL creates from its maintenance database, not one named like the user.
  auto pg = std::make_shared<DriverScript>();
  pg->Engine(
      {"PostgreSQL", zt::platform::ScriptedQuoting::kDoubleQuotes, true, true, "public", ""});
  {
    ScopedScriptedProvider postgres("PostgreSQL", pg);
    auto ds = Store(zt::kProviderPostgreSql, "pghost", "Help Desk");
    ds->UserName("tessel");
    ds->CreatePhysicalDataStore();
    ASSERT_EQ(pg->Connects().size(), 1u);
    EXPECT_EQ(pg->Connects()[0].database, "postgres");
    EXPECT_EQ(pg->Statements(), (std::vector<std::string>{"CREATE DATABASE \"Help Desk\""}));
  }
}

TEST_F(ProviderTypeTest, CompactOfAnUnreachableServerFails) {
  auto pg = Store(zt::kProviderPostgreSql, "127.0.0.1:1", "HelpDesk");  // nothing listens
  pg->UserName("u");
  pg->MaxRetries(1);
  EXPECT_THROW(pg->Compact(), zt::ZtError);
  EXPECT_FALSE(env_.Errors().empty());

  // A server that answers has nothing to compact.
  auto script = std::make_shared<DriverScript>();
  ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
  auto ok = Store(zt::kProviderSqlServer, "HDSRV", "HelpDesk");
  EXPECT_NO_THROW(ok->Compact());
  script->Alive(false);
  ok->CloseConnections();
  EXPECT_THROW(ok->Compact(), zt::ZtError);
}

}  // namespace

namespace {

TEST_F(ProviderTypeTest, ProviderTableGoesOnlyToTheConnectionsItIsGivenTo) {
  std::ofstream(dir_ / "ztdbtools.zt.config")
      << "<configuration><appSettings><add key=\"Provider:HelpFile*\" value=\"Driver=sqlite\"/>"
      << "</appSettings></configuration>";
  zt::ThreadConfigReader().Load(zt::CZtConfigReader::DefaultFileName());
  auto store = Store(zt::kProviderJet, dir_.string(), "help.db");
  store->CreatePhysicalDataStore();
  store->Provider("HelpFile.2");
  EXPECT_TRUE(store->OpenDataStore());

  // A connection opened on its own uses the built-in table, whatever a data store did before.
  const std::string cs = "Provider=HelpFile.2;Data Source=" + store->FullPath();
  auto bare = std::make_shared<zt::Connection>();
  EXPECT_THROW(bare->Open(cs), zt::ZtError);
  // Handed the configured table, it opens; the table a caller holds never changes.
  const auto configured = zt::ConfiguredProviderTable();
  bare->SetProviderTable(configured);
  bare->Open(cs);
  EXPECT_EQ(bare->Engine(), "SQLite");
  bare->Close();
  fs::remove(dir_ / "ztdbtools.zt.config");
  zt::ThreadConfigReader().Load(zt::CZtConfigReader::DefaultFileName());
  EXPECT_EQ(zt::ConfiguredProviderTable(), zt::platform::ProviderTable::BuiltIn());
  ASSERT_NE(configured->Find("HelpFile.2"), nullptr);
  bare->Open(cs);
  bare->Close();

  // A scripted provider is seen by this thread's connections only, and only while it lives.
  auto script = std::make_shared<DriverScript>();
  const std::string sql_cs = "Provider=MSOLEDBSQL;Data Source=127.0.0.1,1;Database=x;";
  {
    ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
    auto c = std::make_shared<zt::Connection>();
    c->Open(sql_cs);
    c->Close();
    std::string elsewhere;
    std::thread([&] { elsewhere = zt::platform::ParseConnectionString(sql_cs).driver; }).join();
    EXPECT_EQ(elsewhere, "odbc");
  }
  EXPECT_EQ(script->Connects().size(), 1u);
  EXPECT_EQ(zt::platform::ParseConnectionString(sql_cs).driver, "odbc");
}

}  // namespace
