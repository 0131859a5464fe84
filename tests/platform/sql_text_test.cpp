// Statement texts on their way to the engine: names stay names, blanks stay blanks.
#include "platform/sql_text.h"

#include <gtest/gtest.h>

#include <map>
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

// A view's query as PostgreSQL and MariaDB give it back, in the library's quoting: names become
// [names] (a closing bracket inside doubled), literals that look like names stay literals, and
// MariaDB's database qualifier goes.
TEST(SqlTextNames, AnEnginesQuotedNamesComeBackBracketed) {
  DriverQuirks pg = Style(QuoteStyle::kDoubleQuotes);
  EXPECT_EQ(BracketQuoting(R"( SELECT "Album"."Ti]tle", 'a "b" c', "x""y" FROM "Album")", pg),
            R"( SELECT [Album].[Ti]]tle], 'a "b" c', [x"y] FROM [Album])");
  DriverQuirks my = Style(QuoteStyle::kBackticks);
  my.backslash_escapes = true;
  EXPECT_EQ(BracketQuoting(R"(select `db`.`t`.`a` AS `a` from `db`.`t` where `b` = 'it\'s `x`')", my,
                           "db"),
            R"(select [t].[a] AS [a] from [t] where [b] = 'it\'s `x`')");
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
  const DriverQuirks folding = Style(QuoteStyle::kDoubleQuotes, true, NameFolding::kUpper);
  const NameResolver exact = [](const std::string& name, bool unquoted) {
    return name == "TblMixed" && !unquoted ? name : std::string();
  };
  EXPECT_EQ(PrepareSqlText("DELETE FROM [TblMixed] WHERE [nId] = 1", folding, "O", exact),
            "DELETE FROM \"TblMixed\" WHERE \"NID\" = 1");
  EXPECT_EQ(PrepareSqlText("DELETE FROM [TblMixed]", folding, "O"), "DELETE FROM \"TBLMIXED\"");
}

TEST(SqlTextNames, CaseSensitiveEnginesGetTheCatalogsSpellingOrTheNameAsWritten) {
  DriverQuirks pg = Style(QuoteStyle::kDoubleQuotes, true, NameFolding::kCatalog);
  pg.engine = "PostgreSQL";
  pg.max_name_bytes = 63;
  const std::map<std::string, std::string> catalog = {
      {"tblmixed", "tblMixed"}, {"nid", "nId"}, {"tname", "tname"}, {"tmajor", "tMajor"}};
  // As the server answers: an unquoted word that its folding already reaches stays.
  const NameResolver resolve = [&](const std::string& name, bool unquoted) {
    const auto it = catalog.find(AsciiLower(name));
    if (it == catalog.end() || (unquoted && it->second == it->first)) return std::string();
    return it->second;
  };
  EXPECT_EQ(PrepareSqlText("UPDATE [TBLMIXED] SET [tName] = 'x' WHERE [nID] = 1", pg, "P", resolve),
            "UPDATE \"tblMixed\" SET \"tname\" = 'x' WHERE \"nId\" = 1");
  // The library's own texts name columns unquoted; functions, casts, numbers and E'' stay.
  EXPECT_EQ(PrepareSqlText("UPDATE [tblTesselVersion]SET tMajor='8' WHERE nId > 3 AND "
                           "lower(tName) = E'x' AND TMAJOR::text <> nid (1)",
                           pg, "P", resolve),
            "UPDATE \"tblTesselVersion\"SET \"tMajor\"='8' WHERE \"nId\" > 3 AND "
            "lower(tName) = E'x' AND \"tMajor\"::text <> nid (1)");
  EXPECT_EQ(PrepareSqlText("INSERT INTO tblMixed(nId) VALUES (1)", pg, "P", resolve),
            "INSERT INTO \"tblMixed\"(\"nId\") VALUES (1)");
  // What a statement makes keeps its case; what it names besides is looked up.
  EXPECT_EQ(PrepareSqlText("CREATE TABLE [tblNew] ([nId] INT, [tName] TEXT, CONSTRAINT [pk] "
                           "PRIMARY KEY ([nId]), FOREIGN KEY ([nUser]) REFERENCES [TBLMIXED] "
                           "([NID]) ON DELETE CASCADE, [TNAME2] INT REFERENCES tblmixed)",
                           pg, "P", resolve),
            "CREATE TABLE \"tblNew\" (\"nId\" INT, \"tName\" TEXT, CONSTRAINT \"pk\" "
            "PRIMARY KEY (\"nId\"), FOREIGN KEY (\"nUser\") REFERENCES \"tblMixed\" "
            "(\"nId\") ON DELETE CASCADE, \"TNAME2\" INT REFERENCES \"tblMixed\")");
  EXPECT_EQ(PrepareSqlText("ALTER TABLE [TBLMIXED] ADD [TName] TEXT", pg, "P", resolve),
            "ALTER TABLE \"tblMixed\" ADD \"TName\" TEXT");
  EXPECT_EQ(
      PrepareSqlText("ALTER TABLE [tblmixed] RENAME COLUMN [NID] TO [nKey]", pg, "P", resolve),
      "ALTER TABLE \"tblMixed\" RENAME COLUMN \"nId\" TO \"nKey\"");
  EXPECT_EQ(PrepareSqlText("CREATE INDEX [IX_Name] ON [TBLMIXED] ([TNAME])", pg, "P", resolve),
            "CREATE INDEX \"IX_Name\" ON \"tblMixed\" (\"tname\")");
  EXPECT_EQ(PrepareSqlText("CREATE TABLE [tblNew] ([Ärger] INT)", pg, "P", resolve),
            "CREATE TABLE \"tblNew\" (\"Ärger\" INT)");
  // 63 bytes pass whole; one more would be cut by the server, so nothing is sent.
  const std::string longest(63, 'n');
  EXPECT_EQ(PrepareSqlText("DROP TABLE [" + longest + "]", pg, "P", resolve),
            "DROP TABLE \"" + longest + "\"");
  try {
    PrepareSqlText("CREATE TABLE [" + longest + "x] (a INT)", pg, "P", resolve);
    ADD_FAILURE() << "a name PostgreSQL would cut was sent";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), hr::kCommand);
    EXPECT_NE(e.Description().find("63 bytes"), std::string::npos) << e.Description();
  }
}

}  // namespace
}  // namespace zt::platform
