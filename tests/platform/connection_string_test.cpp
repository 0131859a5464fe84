// Connection strings, the provider table, SQL text rules and the error table: the parts of the
// layer that need no engine.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "engines.h"
#include "platform/criteria.h"
#include "platform/driver.h"
#include "platform/errors.h"
#include "platform/odbc_driver.h"
#include "platform/sql_text.h"

namespace zt::platform {
namespace {

using zt::testing::ErrorNumber;
using zt::testing::Hr;

TEST(ConnectionStringTest, SplitsQuotedValuesAndTranslatesKeys) {
  const auto keys = SplitConnectionString(
      " Provider = MSOLEDBSQL ; Data Source=db1,1444;Initial Catalog=\"Tes;sel\";"
      "User ID='o''brien';Password={p;w}}d};Persist Security Info=False;;");
  ASSERT_EQ(keys.size(), 6u);
  EXPECT_EQ(keys[2].second, "Tes;sel");
  EXPECT_EQ(FindKey(keys, "user id").value(), "o'brien");
  EXPECT_EQ(FindKey(keys, "PASSWORD").value(), "p;w}d");
  EXPECT_FALSE(FindKey(keys, "Driver"));

  const ConnectParams p = ParseConnectionString(
      "Provider=MSOLEDBSQL;Data Source=db1,1444;Initial Catalog=Tessel;User ID=sa;Password=x;"
      "Connect Timeout=7;App=Tessel");
  EXPECT_EQ(p.driver, "odbc");
  EXPECT_EQ(p.odbc_driver, "FreeTDS");
  EXPECT_EQ(p.data_source, "db1");
  EXPECT_EQ(p.port, 1444);
  EXPECT_EQ(p.database, "Tessel");
  EXPECT_EQ(p.login_timeout, 7);
  // The target driver's own keys come from its family, after the caller's.
  EXPECT_EQ(odbc::ConnectionStringFor(p, odbc::FamilyForDriver(p.odbc_driver)),
            "Driver={FreeTDS};Server=db1;Port=1444;Database=Tessel;UID=sa;PWD=x;App=Tessel;"
            "TDS_Version=7.4;ClientCharset=UTF-8;");

  // Separate user and password win; a value holding ";" or braces cannot add a key.
  const ConnectParams q = ParseConnectionString(
      "Provider=MSDASQL;Driver={MariaDB Unicode};Server=h;Database=d", "u", "a;PWD=b}{");
  EXPECT_EQ(q.OdbcConnectionString(),
            "Driver={MariaDB Unicode};Server=h;Database=d;UID=u;PWD={a;PWD=b}}{};");
  EXPECT_EQ(OdbcQuote(" x"), "{ x}");
  EXPECT_EQ(OdbcQuote("'x"), "{'x}");  // a driver could read a leading quote as its own
  EXPECT_EQ(OdbcQuote("plain"), "plain");

  EXPECT_EQ(ParseConnectionString("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=/x/a.db").driver,
            "sqlite");
  EXPECT_EQ(ParseConnectionString("Driver={SQLite3};Database=/x").driver, "odbc");
  EXPECT_EQ(ParseConnectionString("Provider=PostgreSQL;Data Source=h:5433").port, 5433);
  EXPECT_TRUE(ParseConnectionString("Provider=SQLite;Data Source=a;Mode=Read").read_only);

  EXPECT_EQ(ErrorNumber([] { ParseConnectionString("Provider=NoSuch.Provider"); }), Hr(0x800A0E7A));
  EXPECT_EQ(ErrorNumber([] { SplitConnectionString("Password='open"); }), Hr(0x80040E73));
  EXPECT_EQ(ErrorNumber([] { ParseConnectionString("Provider=PostgreSQL;Port=abc"); }),
            Hr(0x80040E73));
  try {
    SplitConnectionString("Password='s3cret");
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Description().find("s3cret"), std::string::npos);
  }
}

TEST(ConnectionStringTest, AccessFilesGoToTheAccessReaderReadOnly) {
  const auto path = std::filesystem::temp_directory_path() / "zt_platform_jet.mdb";
  {
    std::ofstream f(path, std::ios::binary);
    f << std::string("\0\1\0\0Standard Jet DB\0", 20) << std::string(100, '\0');
  }
  const ConnectParams p =
      ParseConnectionString("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path.string());
  EXPECT_EQ(p.driver, "access");
  EXPECT_TRUE(p.read_only);
  EXPECT_EQ(p.data_source, path.string());
  std::filesystem::remove(path);
}

TEST(SqlTextTest, RewritesBracketsPerEngineOutsideLiteralsAndComments) {
  DriverQuirks pg, my, lite;
  pg.quote = QuoteStyle::kDoubleQuotes;
  my.quote = QuoteStyle::kBackticks;
  my.backslash_escapes = true;
  const std::string sql =
      "SELECT [a b], \"q[x]\" FROM [t]]x] WHERE c = '[no];' /* [no] */ -- [no]\n AND [d]=1";
  EXPECT_EQ(PrepareSqlText(sql, pg, "P"),
            "SELECT \"a b\", \"q[x]\" FROM \"t]x\" WHERE c = '[no];' /* [no] */ -- [no]\n AND "
            "\"d\"=1");
  EXPECT_EQ(PrepareSqlText("SELECT [a`b] FROM t WHERE x = 'it\\'s [n]'", my, "M"),
            "SELECT `a``b` FROM t WHERE x = 'it\\'s [n]'");
  EXPECT_EQ(PrepareSqlText(sql, lite, "S"), sql);
  EXPECT_EQ(PrepareSqlText("UPDATE [tblTesselVersion]SET tMajor='7' ;  -- done\n", pg, "P"),
            "UPDATE \"tblTesselVersion\"SET tMajor='7' ");
  // Where unquoted names fold, bracketed ones fold alike, so both spellings reach one table.
  DriverQuirks folding = pg;
  folding.fold = NameFolding::kLower;
  EXPECT_EQ(
      PrepareSqlText("UPDATE [tblTesselVersion] SET [tMajor]='7' WHERE x='[K]'", folding, "P"),
      "UPDATE \"tbltesselversion\" SET \"tmajor\"='7' WHERE x='[K]'");

  // A second statement is refused wherever it hides; ";" inside literals is harmless.
  for (const char* bad : {"DELETE FROM t; DROP TABLE t", "SELECT 1;SELECT 2", "SELECT 'a;' ; x",
                          "SELECT 1; /* c */ SELECT 2"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(ErrorNumber([&] { PrepareSqlText(bad, lite, "S"); }), Hr(0x80040E14));
  }
  // With backslash escapes a quote after a backslash does not end the literal.
  EXPECT_EQ(ErrorNumber([&] { PrepareSqlText("SELECT 'a\\'; DROP TABLE t; --'", my, "M"); }), 0);
  EXPECT_EQ(ErrorNumber([&] { PrepareSqlText("SELECT 'a\\'; DROP TABLE t; --'", lite, "S"); }),
            Hr(0x80040E14));
  // Each engine's own reading of literals and comments decides where a ";" stands: MySQL's "#"
  // comments, its "--" that needs a blank, its executable "/*!" comments and backslashes in
  // "..." text; PostgreSQL's E'...' literals.
  my.mysql_comments = true;
  DriverQuirks pg_e = pg;
  pg_e.escape_strings = true;
  const std::pair<const char*, const DriverQuirks*> smuggled[] = {
      {"SELECT 1 # '\n; DROP TABLE t; -- '", &my},
      {"SELECT 1 --1; DROP TABLE t", &my},
      {"SELECT 1 /*! ; DROP TABLE t */", &my},
      {"SELECT \"\\\"\"; DROP TABLE t; -- \"", &my},
      {"SELECT E'a\\''; DROP TABLE t; --'", &pg_e},
      {"CREATE TABLE trigger (begin int); DROP TABLE x", &lite}};
  for (const auto& [bad, quirks] : smuggled) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(ErrorNumber([&] { PrepareSqlText(bad, *quirks, "X"); }), Hr(0x80040E14));
  }
  for (const char* fine : {"SELECT 1 -- c; x\n", "SELECT '#;' # c; x", "SELECT \"a\\\";\""}) {
    SCOPED_TRACE(fine);
    EXPECT_EQ(ErrorNumber([&] { PrepareSqlText(fine, my, "M"); }), 0);
  }
  EXPECT_EQ(ErrorNumber([&] { PrepareSqlText("SELECT E'it\\'s; ok', type'x;'", pg_e, "P"); }), 0);

  // Semicolons inside a trigger body or a dollar-quoted body belong to the statement.
  const std::string trigger =
      "CREATE TRIGGER t AFTER DELETE ON x BEGIN DELETE FROM y; UPDATE z SET a = CASE WHEN 1 THEN "
      "2 END; END";
  EXPECT_EQ(PrepareSqlText(trigger, lite, "S"), trigger);
  EXPECT_EQ(ErrorNumber([&] { PrepareSqlText(trigger + "; DROP TABLE x", lite, "S"); }),
            Hr(0x80040E14));
  EXPECT_EQ(ErrorNumber([&] { PrepareSqlText("SELECT 1 AS begin; DROP TABLE x", lite, "S"); }),
            Hr(0x80040E14));
  pg.dollar_quotes = true;
  EXPECT_EQ(ErrorNumber([&] {
              PrepareSqlText("CREATE FUNCTION f() RETURNS int AS $b$ SELECT 1; $b$ LANGUAGE sql",
                             pg, "P");
            }),
            0);

  EXPECT_EQ(RewritePlaceholders("SELECT ? , '?' , ? -- ?\n", pg), "SELECT $1 , '?' , $2 -- ?\n");
  EXPECT_EQ(QuoteIdentifier("a\"b", pg), "\"a\"\"b\"");
}

TEST(ErrorTableTest, EngineCodesMapToTheOldNumbers) {
  EXPECT_EQ(HResultForSqlState("08001"), Hr(0x80004005));
  EXPECT_EQ(HResultForSqlState("08S01"), Hr(0x80004005));
  EXPECT_EQ(HResultForSqlState("28000"), Hr(0x80040E4D));
  EXPECT_EQ(HResultForSqlState("28P01"), Hr(0x80040E4D));
  EXPECT_EQ(HResultForSqlState("42501"), Hr(0x80040E09));
  EXPECT_EQ(HResultForSqlState("42S02"), Hr(0x80040E37));
  EXPECT_EQ(HResultForSqlState("42000", "Table 'x.y' doesn't exist"), Hr(0x80040E37));
  EXPECT_EQ(HResultForSqlState("42601"), Hr(0x80040E14));
  EXPECT_EQ(HResultForSqlState("23505"), Hr(0x80040E2F));
  EXPECT_EQ(HResultForSqlState("22001"), Hr(0x80040E57));
  EXPECT_EQ(HResultForSqlState("22P02"), Hr(0x80040E07));
  EXPECT_EQ(HResultForSqlState("HYT00"), Hr(0x80040E31));
  EXPECT_EQ(HResultForSqlState("57014"), Hr(0x80040E31));
  EXPECT_EQ(HResultForSqlState(""), Hr(0x80004005));
  EXPECT_EQ(HResultForSqlite(5), Hr(0x80004005));     // busy
  EXPECT_EQ(HResultForSqlite(6), Hr(0x80004005));     // locked
  EXPECT_EQ(HResultForSqlite(14), Hr(0x80004005));    // cannot open
  EXPECT_EQ(HResultForSqlite(8), Hr(0x80040E09));     // read-only
  EXPECT_EQ(HResultForSqlite(2067), Hr(0x80040E2F));  // unique constraint (extended)
  EXPECT_EQ(HResultForSqlite(9), Hr(0x80040E31));     // interrupted by the time-out
  EXPECT_EQ(HResultForSqlite(1, "no such table: t"), Hr(0x80040E37));
  try {
    RaiseSqlState("MSOLEDBSQL", "08S01", 20009, "Unable to connect");
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Source(), "MSOLEDBSQL");
    EXPECT_EQ(e.Description(), "Unable to connect (20009)");
  }
}

TEST(CriteriaTest, FindAndFilterForms) {
  const std::vector<std::string> names = {"COLUMN_NAME", "n", "d", "t"};
  auto resolve = [&](const std::string& s) {
    for (std::size_t i = 0; i < names.size(); ++i)
      if (strcasecmp(names[i].c_str(), s.c_str()) == 0) return static_cast<int>(i);
    return -1;
  };
  auto m = [&](const std::string& c, std::vector<Variant> row) {
    return Criteria::Parse(c, resolve, "T")->Matches(row);
  };
  const std::vector<Variant> row = {"tName", 5, Date::FromParts(2024, 1, 31), Variant::Null()};
  EXPECT_TRUE(m("COLUMN_NAME='TNAME'", row));
  EXPECT_TRUE(m("[column_name] <> 'x' AND n >= 5", row));
  EXPECT_FALSE(m("n > 5 OR (n < 5)", row));
  EXPECT_TRUE(m("COLUMN_NAME LIKE 't*' AND COLUMN_NAME NOT LIKE '%z%'", row));
  EXPECT_TRUE(m("d = #1/31/2024#", row));
  EXPECT_TRUE(m("d < #2024-02-01#", row));
  EXPECT_TRUE(m("t = NULL AND t IS NULL", row));
  EXPECT_FALSE(m("t <> NULL", row));
  EXPECT_FALSE(m("t = 'x'", row));  // comparisons with Null are never true
  EXPECT_TRUE(m("n = '5'", row));   // numeric text against a number
  EXPECT_TRUE(m("COLUMN_NAME = 'it''s' OR n = 5.0", row));
  for (const char* bad : {"", "n =", "zz = 1", "n = 'open", "(n = 1", "n ~ 1", "n = 1 junk"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(ErrorNumber([&] { Criteria::Parse(bad, resolve, "T"); }), Hr(0x800A0BB9));
  }
}

}  // namespace
}  // namespace zt::platform
