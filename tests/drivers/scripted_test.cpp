// The scripted driver as other layers' tests use it: a provider redirected to a script.
#include <gtest/gtest.h>

#include "engines.h"
#include "platform/errors.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace zt::testing {
namespace {

using platform::DriverScript;
using platform::SchemaKind;
using platform::ScriptedAnswer;

const char* const kSqlServer =
    "Provider=MSOLEDBSQL;Data Source=srv01;Initial Catalog=Tessel;User ID=sa;Password=s3cret;";

TEST(ScriptedDriver, ProviderIsRedirectedWhileScopedAndAnswersFromRules) {
  auto script = std::make_shared<DriverScript>();
  script
      ->On("SELECT name FROM sysobjects",
           ScriptedAnswer::Rows({"name", "id"}, {{"tblA", 7}, {"tblB", 8}}))
      .On("DELETE FROM [tblA]", ScriptedAnswer::Affected(3), DriverScript::Match::kExact, 1)
      .On(R"(DROP TABLE \[\w+\])", ScriptedAnswer::Error(platform::hr::kNoTable, "Cannot drop"),
          DriverScript::Match::kRegex)
      .Otherwise(ScriptedAnswer::Affected(1));
  {
    platform::ScopedScriptedProvider scope("MSOLEDBSQL", script);
    EXPECT_EQ(platform::ParseConnectionString(kSqlServer).driver, "scripted");
    auto conn = OpenBackend(kSqlServer);
    EXPECT_EQ(conn->Quirks().quote, platform::QuoteStyle::kBrackets);
    EXPECT_EQ(conn->CurrentCatalog(), "Tessel");
    EXPECT_EQ(conn->DefaultSchema(), "dbo");

    auto rs = Rows(*conn, "SELECT name FROM sysobjects WHERE xtype = 'U'");
    ASSERT_EQ(rs.rows.size(), 2u);
    EXPECT_EQ(rs.columns[0].type, 202);
    EXPECT_EQ(rs.columns[1].type, 3);
    EXPECT_EQ(rs.rows[1][0].ToText(), "tblB");

    conn->BeginTransaction();
    EXPECT_EQ(Exec(*conn, "DELETE FROM [tblA]"), 3);
    EXPECT_EQ(Exec(*conn, "DELETE FROM [tblA]"), 1) << "a rule used once falls back afterwards";
    conn->Commit();
    EXPECT_EQ(Exec(*conn, "UPDATE t SET a = ? WHERE b = ?", {5, "x"}), 1);
    try {
      Exec(*conn, "DROP TABLE [tblA]");
      FAIL() << "scripted error not raised";
    } catch (const ZtError& e) {
      EXPECT_EQ(e.Number(), platform::hr::kNoTable);
      EXPECT_EQ(e.Source(), "MSOLEDBSQL");
      EXPECT_EQ(e.Description(), "Cannot drop");
    }
  }
  // Out of scope the real driver is back.
  EXPECT_EQ(platform::ParseConnectionString(kSqlServer).driver, "odbc");

  EXPECT_EQ(script->Statements(),
            (std::vector<std::string>{"SELECT name FROM sysobjects WHERE xtype = 'U'",
                                      "DELETE FROM [tblA]", "DELETE FROM [tblA]",
                                      "UPDATE t SET a = ? WHERE b = ?", "DROP TABLE [tblA]"}));
  ASSERT_EQ(script->Sent()[3].parameters.size(), 2u);
  EXPECT_EQ(script->Sent()[3].parameters[0].ToInt32(), 5);
  EXPECT_EQ(script->Sent()[3].parameters[1].ToText(), "x");
  const auto& ev = script->Events();
  ASSERT_GE(ev.size(), 5u);
  EXPECT_EQ(ev.front(), "open");
  EXPECT_EQ(ev[2], "begin");
  EXPECT_EQ(ev[5], "commit");
  EXPECT_EQ(ev.back(), "close");
  ASSERT_EQ(script->Connects().size(), 1u);
  EXPECT_EQ(script->Connects()[0].data_source, "srv01");
  EXPECT_EQ(script->Connects()[0].user, "sa");
  EXPECT_TRUE(script->Connects()[0].has_password);
}

TEST(ScriptedDriver, SchemaAnswersOpenFailuresAndLiveness) {
  auto script = std::make_shared<DriverScript>();
  script->Schema(static_cast<int>(SchemaKind::kTables),
                 ScriptedAnswer::Rows({"TABLE_CATALOG", "TABLE_SCHEMA", "TABLE_NAME", "TABLE_TYPE"},
                                      {{"db", "dbo", "tblA", "TABLE"},
                                       {"db", "other", "tblA", "TABLE"},
                                       {"db", "dbo", "tblB", "VIEW"}}));
  platform::RegisterDriverScript("unit", script);
  auto conn = OpenBackend("Provider=Scripted;Data Source=unit;Initial Catalog=db");
  platform::SchemaRestrictions r;
  r.table = "TBLA";
  r.schema = "";  // the default schema
  auto rs = conn->Schema(SchemaKind::kTables, r);
  ASSERT_EQ(rs.rows.size(), 1u);
  EXPECT_EQ(rs.rows[0][1].ToText(), "dbo");
  EXPECT_EQ(conn->Schema(SchemaKind::kTables, {}).rows.size(), 3u);
  // A rowset without an answer goes through the portable queries, which the script records.
  script->ClearLog();
  auto cols = conn->Schema(SchemaKind::kColumns, r);
  EXPECT_TRUE(cols.rows.empty());
  EXPECT_EQ(ColumnIndex(cols, "DATA_TYPE"), 9);
  ASSERT_EQ(script->Sent().size(), 1u);
  EXPECT_NE(script->Sent()[0].sql.find("information_schema.columns"), std::string::npos);

  EXPECT_TRUE(conn->IsAlive());
  script->Alive(false);
  EXPECT_FALSE(conn->IsAlive());

  // A driver that repeats its connection string keeps the password out of the error; the
  // engine's own words are not searched for the password ("running" is one here).
  script->FailOpen(
      platform::hr::kLogin,
      "Login failed for user 'sa';Data Source=unit;Password=running;is the server running?");
  Connection cn;
  try {
    cn.Open("Provider=Scripted;Data Source=unit;User ID=sa;Password=running");
    FAIL() << "open should fail";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kLogin);
    EXPECT_EQ(e.Description(),
              "Login failed for user 'sa';Data Source=unit;Password=*;is the server running?");
  }
  EXPECT_EQ(cn.State(), ado::adStateClosed);
  try {
    script->On("([unclosed", ScriptedAnswer::Affected(0), DriverScript::Match::kRegex);
    FAIL() << "bad pattern accepted";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), 5);
  }
  platform::UnregisterDriverScript("unit");
  try {
    OpenBackend("Provider=Scripted;Data Source=unit");
    FAIL() << "an unregistered script opened";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), platform::hr::kFail);
    EXPECT_NE(e.Description().find("'unit'"), std::string::npos);
  }
}

}  // namespace
}  // namespace zt::testing
