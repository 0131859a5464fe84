// Statement texts on their way to the engine: names stay names, blanks stay blanks.
#include "platform/sql_text.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "engines.h"
#include "platform/driver.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/platform.h"
#include "zt/platform/scripted_driver.h"

namespace zt::platform {
namespace {

DriverQuirks Style(QuoteStyle quote, bool bracket_escapes = true,
                   NameFolding fold = NameFolding::kNone) {
  DriverQuirks q;
  q.quote = quote;
  q.bracket_escapes = bracket_escapes;
  q.fold = fold;
  return q;
}

TEST(SqlTextNames, ClosingBracketsInANameNeverEndItEarly) {
  const DriverQuirks sqlite = Style(QuoteStyle::kBrackets, false);
  const DriverQuirks sql_server = Style(QuoteStyle::kBrackets, true);
  const DriverQuirks pg = Style(QuoteStyle::kDoubleQuotes, true, NameFolding::kLower);
  const DriverQuirks my = Style(QuoteStyle::kBackticks);
  const std::string hostile = "DELETE FROM " + BracketName("tblTickets] --") + " WHERE nId=5";
  EXPECT_EQ(hostile, "DELETE FROM [tblTickets]] --] WHERE nId=5");
  EXPECT_EQ(PrepareSqlText(hostile, sqlite, "S"), "DELETE FROM \"tblTickets] --\" WHERE nId=5");
  EXPECT_EQ(PrepareSqlText(hostile, sql_server, "S"), hostile);
  EXPECT_EQ(PrepareSqlText(hostile, pg, "P"), "DELETE FROM \"tbltickets] --\" WHERE nId=5");
  EXPECT_EQ(PrepareSqlText("DELETE FROM " + BracketName("tblTickets] #") + " WHERE nId=5", my, "M"),
            "DELETE FROM `tblTickets] #` WHERE nId=5");
  // The engine's own quote inside the name is doubled, so it cannot end the name either.
  EXPECT_EQ(PrepareSqlText("SELECT [a\"b]]c] FROM t", sqlite, "S"), "SELECT \"a\"\"b]c\" FROM t");
  EXPECT_EQ(PrepareSqlText("SELECT [a`b]] #] FROM t", my, "M"), "SELECT `a``b] #` FROM t");
  // Names without "]" stay exactly as written on bracket engines.
  EXPECT_EQ(PrepareSqlText("SELECT [a\"b] FROM [t x]", sqlite, "S"), "SELECT [a\"b] FROM [t x]");
  // A name cut off by a stray "]" leaves a second statement behind, which is still refused.
  EXPECT_THROW(PrepareSqlText("DELETE FROM [x]; DELETE FROM [y]", sqlite, "S"), ZtError);
}

TEST(SqlTextNames, TrailingBlanksReachTheEngine) {
  const DriverQuirks sqlite = Style(QuoteStyle::kBrackets, false);
  const DriverQuirks pg = Style(QuoteStyle::kDoubleQuotes, true, NameFolding::kLower);
  EXPECT_EQ(PrepareSqlText("DELETE FROM [tblCalls] ", sqlite, "S"), "DELETE FROM [tblCalls] ");
  EXPECT_EQ(PrepareSqlText("DELETE FROM [tblCalls] \t\n", pg, "P"),
            "DELETE FROM \"tblcalls\" \t\n");
  // Only a final ";" and what follows it are dropped.
  EXPECT_EQ(PrepareSqlText("SELECT 1 ;  -- done\n", sqlite, "S"), "SELECT 1 ");

  // Through a connection and the data store, as the driver receives them.
  testing::RecordingEnv env;
  auto script = std::make_shared<DriverScript>();
  script->Otherwise(ScriptedAnswer::Affected(4));
  ScopedScriptedProvider scope("MSOLEDBSQL", script);
  auto cn = std::make_shared<Connection>();
  cn->Open("Provider=MSOLEDBSQL;Data Source=srv;Initial Catalog=Tessel;");
  CZtDataStore ds;
  ds.DataStoreConnection(cn);
  EXPECT_EQ(ds.DeleteTableRecords("tblCalls"), 4);
  EXPECT_EQ(ds.DeleteTableRecords("tblCalls", "nId=5"), 4);
  EXPECT_EQ(ds.DeleteTableRecords("tblTickets] --", "nId=5"), 4);
  ds.DeleteTable("tblCalls");
  EXPECT_EQ(script->Statements(),
            (std::vector<std::string>{
                "DELETE FROM [tblCalls] ", "DELETE FROM [tblCalls] WHERE nId=5",
                "DELETE FROM [tblTickets]] --] WHERE nId=5", "DROP TABLE [tblCalls]"}));
}

TEST(SqlTextNames, AnObjectOfExactlyTheNameWinsOverFolding) {
  const DriverQuirks pg = Style(QuoteStyle::kDoubleQuotes, true, NameFolding::kLower);
  const std::set<std::string> tables = {"TblMixed", "tblmixed", "tblother"};
  std::vector<std::string> asked;
  const ExactNameProbe probe = [&](const std::string& name) {
    asked.push_back(name);
    return tables.count(name) > 0;
  };
  EXPECT_EQ(PrepareSqlText("DELETE FROM [TblMixed] WHERE [nId] = 1", pg, "P", probe),
            "DELETE FROM \"TblMixed\" WHERE \"nid\" = 1");
  EXPECT_EQ(PrepareSqlText("SELECT * FROM [tblOther]", pg, "P", probe),
            "SELECT * FROM \"tblother\"");
  // Names that fold to themselves need no answer; without a probe every name folds.
  EXPECT_EQ(PrepareSqlText("SELECT * FROM [tblmixed]", pg, "P", probe),
            "SELECT * FROM \"tblmixed\"");
  EXPECT_EQ(asked, (std::vector<std::string>{"TblMixed", "nId", "tblOther"}));
  EXPECT_EQ(PrepareSqlText("DELETE FROM [TblMixed]", pg, "P"), "DELETE FROM \"tblmixed\"");
}

}  // namespace
}  // namespace zt::platform
