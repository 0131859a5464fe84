// Database names in CREATE DATABASE and DROP DATABASE: whatever a caller names a database, the
// statement creates or drops exactly that database and nothing else.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "zt/datastore.h"
#include "zt/error.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

using zt::platform::DriverScript;
using zt::platform::ScopedScriptedProvider;

namespace {

std::shared_ptr<zt::CZtDataStore> ServerStore(std::int32_t type, const std::string& location,
                                              const std::string& name) {
  auto ds = std::make_shared<zt::CZtDataStore>();
  ds->GeneralProviderType(type);
  ds->Location(location);
  ds->DataStoreName(name);
  return ds;
}

std::string Env(const char* key, const char* fallback) {
  const char* v = std::getenv(key);
  return v ? v : fallback;
}

TEST(DatabaseNameTest, BracketClosingNamesStayOneNameOnSqlServer) {
  auto script = std::make_shared<DriverScript>();
  ScopedScriptedProvider sql_server("MSOLEDBSQL", script);
  for (const std::string name : {"Help]Desk", "HelpDesk]; DROP DATABASE [master", "x] --"}) {
    script->ClearLog();
    auto ds = ServerStore(zt::kProviderSqlServer, "HDSRV", name);
    ds->CreatePhysicalDataStore();
    ds->DeletePhysicalDataStore();
    std::string doubled;
    for (char c : name) doubled += c == ']' ? std::string("]]") : std::string(1, c);
    // One statement each, the whole name inside one pair of brackets.
    EXPECT_EQ(script->Statements(), (std::vector<std::string>{"CREATE DATABASE [" + doubled + "]",
                                                              "DROP DATABASE [" + doubled + "]"}))
        << name;
  }
}

// Live: a database whose name holds "]", a double quote and a comment opener is created under
// exactly that name and dropped again, and no other database appears or goes.
TEST(DatabaseNameTest, OddNamesCreateAndDropExactlyThatDatabaseOnPostgreSql) {
  if (!std::getenv("DBTEST_PG_PORT")) {
    if (Env("ZT_REQUIRE_ENGINES", "0") == "1") FAIL() << "PostgreSQL is required";
    GTEST_SKIP() << "PostgreSQL not configured";
  }
  const std::string host = Env("DBTEST_PG_HOST", "127.0.0.1") + ":" + Env("DBTEST_PG_PORT", "0");
  const std::string odd =
      "zt_db] \"x -- " + std::to_string(::testing::UnitTest::GetInstance()->random_seed());
  auto watch = std::make_shared<zt::Connection>();
  watch->Open("Provider=PostgreSQL;Data Source=" + Env("DBTEST_PG_HOST", "127.0.0.1") +
              ";Port=" + Env("DBTEST_PG_PORT", "0") + ";Database=" + Env("DBTEST_PG_DB", "dbtest") +
              ";User ID=" + Env("DBTEST_PG_USER", "dbtest") +
              ";Password=" + Env("DBTEST_PG_PASSWORD", "") + ";");
  const auto databases = [&] {
    std::vector<std::string> names;
    auto rs = watch->Execute("SELECT datname FROM pg_database ORDER BY datname");
    // Other tests make databases of their own ("zt_cli_...", "zt odd...") on the same server
    // meanwhile; any other name, and every one this test's name could be cut or split into,
    // counts.
    for (; !rs->Eof(); rs->MoveNext()) {
      const std::string name = rs->Value("datname").ToText();
      if (name.rfind("zt", 0) != 0 || name.rfind("zt_db", 0) == 0) names.push_back(name);
    }
    return names;
  };
  const std::vector<std::string> before = databases();

  auto ds = ServerStore(zt::kProviderPostgreSql, host, odd);
  ds->UserName(Env("DBTEST_PG_USER", "dbtest"));
  ds->Password(Env("DBTEST_PG_PASSWORD", ""));
  ds->CreatePhysicalDataStore();
  std::vector<std::string> expected = before;
  expected.push_back(odd);
  std::sort(expected.begin(), expected.end());
  std::vector<std::string> after = databases();
  std::sort(after.begin(), after.end());
  EXPECT_EQ(after, expected);

  ds->DeletePhysicalDataStore();
  EXPECT_EQ(databases(), before);
}

}  // namespace
