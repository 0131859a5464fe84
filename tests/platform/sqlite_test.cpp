// What only the embedded engine shows: Jet vocabulary, locking, row identity, time-outs.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "engines.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

class SqliteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = std::filesystem::temp_directory_path() /
            ("zt_sqlite_" + std::to_string(::getpid()) + "_" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".db");
    std::filesystem::remove(path_);
    cn = Open();
  }
  void TearDown() override {
    cn.reset();
    std::filesystem::remove(path_);
  }
  std::shared_ptr<Connection> Open() {
    auto c = std::make_shared<Connection>();
    c->Open("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + path_.string() + ";");
    return c;
  }
  std::filesystem::path path_;
  std::shared_ptr<Connection> cn;
};

TEST_F(SqliteTest, LockedFileIsAGeneralFailure) {
  cn->Execute("CREATE TABLE t (id LONG)");
  auto other = Open();
  other->BeginTrans();
  other->Execute("INSERT INTO t VALUES (1)");
  try {
    cn->Execute("INSERT INTO t VALUES (2)");
    ADD_FAILURE() << "the write should have been refused";
  } catch (const ZtError& e) {
    EXPECT_EQ(e.Number(), Hr(0x80004005));
    EXPECT_NE(e.Description().find("locked"), std::string::npos) << e.Description();
  }
  EXPECT_EQ(cn->State(), adStateOpen);  // busy is not a dead connection
  other->RollbackTrans();
  cn->Execute("INSERT INTO t VALUES (2)");

  auto bad = std::make_shared<Connection>();
  EXPECT_EQ(ZT_ERROR_NUMBER(bad->Open("Provider=SQLite;Data Source=/nonexistent/dir/x.db")),
            Hr(0x80004005));
  EXPECT_EQ(bad->State(), adStateClosed);
}

TEST_F(SqliteTest, JetTypesKeyLessTablesAndAutoNumbers) {
  cn->Execute(
      "CREATE TABLE [tblJet] ([nId] COUNTER PRIMARY KEY, [tName] TEXT(20), [fFlag] YESNO, "
      "[nSmall] SHORT, [nByte] BYTE, [cAmount] MONEY, [mNotes] LONGTEXT, [gId] GUID, "
      "[bData] LONGBINARY, [dVal] DECIMAL(12,2), [sVal] SINGLE)");
  Recordset rs;
  rs.Open("tblJet", cn, adOpenKeyset, adLockOptimistic, adCmdTable);
  const std::pair<const char*, std::int32_t> codes[] = {{"nId", adInteger},
                                                        {"tName", adVarWChar},
                                                        {"fFlag", adBoolean},
                                                        {"nSmall", adSmallInt},
                                                        {"nByte", adUnsignedTinyInt},
                                                        {"cAmount", adCurrency},
                                                        {"mNotes", adLongVarWChar},
                                                        {"gId", adGUID},
                                                        {"bData", adLongVarBinary},
                                                        {"dVal", adNumeric},
                                                        {"sVal", adSingle}};
  for (const auto& [name, code] : codes) EXPECT_EQ(rs.Fields(name).Type(), code) << name;
  EXPECT_EQ(rs.Fields("dVal").Precision(), 12);
  EXPECT_EQ(rs.Fields("dVal").NumericScale(), 2);
  EXPECT_EQ(rs.Fields("tName").DefinedSize(), 20);

  // The engine numbers new rows and the recordset sees the number after Update.
  rs.AddNew();
  rs.Fields("tName").SetValue("first");
  rs.Fields("fFlag").SetValue(true);
  rs.Update();
  EXPECT_EQ(rs.Fields("nId").Value().ToInt32(), 1);
  EXPECT_TRUE(rs.Fields("fFlag").Value().ToBool());
  // True is stored as Jet's -1, so SQL text written for Jet keeps working.
  EXPECT_EQ(
      cn->Execute("SELECT COUNT(*) FROM tblJet WHERE fFlag = -1")->Fields(0).Value().ToInt32(), 1);

  // Files converted from Jet hold dates as OLE day numbers; a midnight is an integer there.
  cn->Execute("CREATE TABLE [tblDates] ([dWhen] DATETIME)");
  cn->Execute("INSERT INTO tblDates VALUES (45000.5)");
  cn->Execute("INSERT INTO tblDates VALUES (45001.0)");
  auto dates = cn->Execute("SELECT dWhen FROM tblDates ORDER BY dWhen");
  EXPECT_EQ(dates->Fields(0).Value().Type(), VarType::Date);
  EXPECT_DOUBLE_EQ(dates->Fields(0).Value().ToDouble(), 45000.5);
  dates->MoveNext();
  EXPECT_EQ(dates->Fields(0).Value().Type(), VarType::Date);
  EXPECT_DOUBLE_EQ(dates->Fields(0).Value().ToDouble(), 45001.0);

  // A table without a key is written through the row identity: only the one row changes.
  cn->Execute("CREATE TABLE [tblNoKey] ([a] LONG, [b] TEXT(10))");
  cn->Execute("INSERT INTO tblNoKey VALUES (1, 'x')");
  cn->Execute("INSERT INTO tblNoKey VALUES (1, 'x')");
  Recordset nk;
  nk.Open("[tblNoKey]", cn, adOpenKeyset, adLockOptimistic);
  EXPECT_EQ(nk.GetFields().Count(), 2);  // the row identity stays hidden
  nk.Fields("b").SetValue("y");
  nk.Update();
  EXPECT_EQ(cn->Execute("SELECT COUNT(*) FROM tblNoKey WHERE b = 'y'")->Fields(0).Value().ToInt32(),
            1);

  // Rows from two tables cannot be written.
  Recordset join;
  join.Open("SELECT j.nId, k.a FROM tblJet j, tblNoKey k", cn, adOpenStatic, adLockOptimistic);
  EXPECT_EQ(ZT_ERROR_NUMBER(join.Fields("a").SetValue(3)), Hr(0x800A0CB3));
}

TEST_F(SqliteTest, CommandTimeoutStopsALongStatement) {
  Command cmd;
  cmd.SetActiveConnection(cn);
  cmd.SetCommandTimeout(1);
  cmd.SetCommandText(
      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c) SELECT max(x) FROM c");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ZT_ERROR_NUMBER(cmd.Execute()), Hr(0x80040E31));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(cn->CommandTimeout(), 30);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->SetCommandTimeout(-1)), Hr(0x800A0BB9));

  // Reading the rows afterwards is no part of the statement: a slow reader is not cut off.
  cmd.SetCommandText("WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM c WHERE x < "
                     "3000000) SELECT x FROM c");
  auto rows = cmd.Execute();
  std::this_thread::sleep_for(std::chrono::milliseconds(1100));
  std::int64_t n = 0;
  for (; !rows->Eof(); rows->MoveNext()) ++n;
  EXPECT_EQ(n, 3000000);
}

}  // namespace
}  // namespace zt::testing
