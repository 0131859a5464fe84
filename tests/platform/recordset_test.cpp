// Recordset and Connection behaviour that does not depend on the engine, shown on SQLite.
#include <gtest/gtest.h>

#include "engines.h"
#include "zt/platform.h"
#include "zt/platform/dao.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

class RecordsetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    cn = std::make_shared<Connection>();
    cn->Open("Provider=SQLite;Data Source=:memory:");
    cn->Execute("CREATE TABLE t (id LONG PRIMARY KEY, name TEXT(10), n LONG)");
    for (int i = 1; i <= 5; ++i)
      cn->Execute("INSERT INTO t VALUES (" + std::to_string(i) + ", 'n" + std::to_string(i) +
                  "', " + std::to_string(i % 2) + ")");
  }
  std::int32_t Scalar(const std::string& sql) {
    return cn->Execute(sql)->Fields(0).Value().ToInt32();
  }
  std::shared_ptr<Connection> cn;
};

TEST_F(RecordsetTest, CursorChoicesAndPositions) {
  Recordset dyn;
  dyn.Open("SELECT * FROM t", cn, adOpenDynamic, adLockOptimistic);
  EXPECT_EQ(dyn.CursorType(), adOpenKeyset);
  EXPECT_EQ(dyn.ActiveConnection(), cn);
  EXPECT_EQ(cn->Execute("SELECT 1")->ActiveConnection(), cn);
  EXPECT_EQ(cn->Execute("SELECT 1", nullptr, adExecuteNoRecords)->State(), adStateClosed);
  // A field travels in a Variant and keeps its recordset alive.
  Variant held;
  {
    auto rs = cn->Execute("SELECT name FROM t WHERE id = 3");
    held = Variant(std::shared_ptr<Object>(rs, &rs->Fields("name")));
  }
  auto* field = dynamic_cast<Field*>(held.AsObject().get());
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(field->Value().ToText(), "n3");
  EXPECT_EQ(dyn.LockType(), adLockOptimistic);

  cn->SetCursorLocation(adUseClient);
  Recordset client;
  client.Open("SELECT * FROM t", cn, adOpenKeyset, adLockPessimistic);
  EXPECT_EQ(client.CursorType(), adOpenStatic);
  EXPECT_EQ(client.LockType(), adLockOptimistic);
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->SetCursorLocation(7)), Hr(0x800A0BB9));
  EXPECT_EQ(ZT_ERROR_NUMBER(client.Open("t", cn, 9, 1)), Hr(0x800A0E79));

  Recordset bad;
  EXPECT_EQ(ZT_ERROR_NUMBER(bad.Open("SELECT * FROM t", cn, 9, 1)), Hr(0x800A0BB9));
  EXPECT_EQ(bad.State(), adStateClosed);
  EXPECT_EQ(ZT_ERROR_NUMBER(bad.Open("SELECT * FROM nowhere", cn)), Hr(0x80040E37));
  EXPECT_EQ(ZT_ERROR_NUMBER(bad.Eof()), Hr(0x800A0E78));

  // Positions count the rows the filter shows.
  client.SetFilter("n = 1");
  EXPECT_EQ(client.RecordCount(), 3);
  client.MoveLast();
  EXPECT_EQ(client.AbsolutePosition(), 3);
  EXPECT_EQ(client.Fields("id").Value().ToInt32(), 5);
  client.MovePrevious();
  EXPECT_EQ(client.Fields("id").Value().ToInt32(), 3);
  client.Close();
  EXPECT_EQ(client.State(), adStateClosed);
  client.Close();  // closing twice is harmless
}

TEST_F(RecordsetTest, EditsThatChangeNothingWriteNothing) {
  Recordset rs;
  rs.Open("SELECT * FROM t ORDER BY id", cn, adOpenKeyset, adLockOptimistic);
  rs.Fields("name").SetValue("n1");  // the value it already has
  rs.Update();
  EXPECT_EQ(rs.EditMode(), adEditNone);
  // Moving writes a pending edit first.
  rs.Fields("name").SetValue("moved");
  rs.MoveNext();
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE name = 'moved'"), 1);
  // AddNew then CancelUpdate leaves no row and returns to where it was.
  rs.AddNew();
  rs.Fields("id").SetValue(6);
  rs.CancelUpdate();
  EXPECT_EQ(rs.Fields("id").Value().ToInt32(), 2);
  EXPECT_EQ(rs.RecordCount(), 5);
  // A key change is written with the original key in the WHERE clause.
  rs.Fields("id").SetValue(20);
  rs.Update();
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE id = 20 AND name = 'n2'"), 1);
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE id = 2"), 0);
  // Expressions cannot be written.
  Recordset expr;
  expr.Open("SELECT id, n + 1 AS m FROM t", cn, adOpenStatic, adLockOptimistic);
  EXPECT_EQ(expr.Fields("m").Type(), adInteger);
  EXPECT_EQ(ZT_ERROR_NUMBER(expr.Fields("m").SetValue(1)), Hr(0x800A0CB3));
  expr.Fields("id").SetValue(30);
  expr.Update();
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE id = 30"), 1);
}

TEST_F(RecordsetTest, RowsWithoutAKeyAreFoundByTheirValues) {
  cn->Execute("CREATE TABLE nk (a LONG, b TEXT(5))");
  cn->Execute("INSERT INTO nk VALUES (1, 'x')");
  cn->Execute("INSERT INTO nk VALUES (1, 'x')");
  cn->Execute("INSERT INTO nk VALUES (2, NULL)");
  Recordset rs;  // SQL text: no row identity, so every column finds the row
  rs.Open("SELECT a, b FROM nk ORDER BY a", cn, adOpenStatic, adLockOptimistic);
  rs.Fields("b").SetValue("y");
  EXPECT_EQ(ZT_ERROR_NUMBER(rs.Update()), Hr(0x80004005));  // two rows would change
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM nk WHERE b = 'y'"), 0);
  rs.CancelUpdate();
  rs.MoveLast();
  rs.Fields("b").SetValue("z");  // Null in the WHERE clause is matched with IS NULL
  rs.Update();
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM nk WHERE a = 2 AND b = 'z'"), 1);
}

TEST_F(RecordsetTest, BatchCancelAndClose) {
  Recordset rs;
  rs.Open("SELECT * FROM t ORDER BY id", cn, adOpenStatic, adLockBatchOptimistic);
  rs.Fields("name").SetValue("x");
  rs.Update();
  rs.MoveNext();
  rs.Delete();
  EXPECT_EQ(rs.RecordCount(), 4);
  rs.CancelBatch();
  EXPECT_EQ(rs.RecordCount(), 5);
  rs.MoveFirst();
  EXPECT_EQ(rs.Fields("name").Value().ToText(), "n1");
  rs.Fields("name").SetValue("y");
  rs.Update();
  rs.Close();  // pending changes are dropped
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE name IN ('x', 'y')"), 0);

  // Inside the caller's transaction a batch joins it, and the caller's rollback undoes it.
  Recordset in_tx;
  in_tx.Open("t", cn, adOpenKeyset, adLockBatchOptimistic, adCmdTable);
  cn->BeginTrans();
  in_tx.Fields("n").SetValue(42);
  in_tx.UpdateBatch();
  EXPECT_TRUE(cn->InTransaction());
  cn->RollbackTrans();
  EXPECT_EQ(Scalar("SELECT COUNT(*) FROM t WHERE n = 42"), 0);
}

TEST_F(RecordsetTest, ConnectionPropertiesAndReadOnlyFiles) {
  EXPECT_EQ(cn->Engine(), "SQLite");
  EXPECT_EQ(cn->Provider(), "SQLite");
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->SetConnectionString("Provider=SQLite")), Hr(0x800A0E79));
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->OpenSchema(adSchemaTables, "not an array")), Hr(0x800A0BB9));
  cn->Close();
  cn->SetConnectionString("Provider=Microsoft.Jet.OLEDB.4.0;Data Source=:memory:");
  EXPECT_EQ(cn->Provider(), "Microsoft.Jet.OLEDB.4.0");
  cn->SetConnectionString("Data Source=:memory:");
  EXPECT_EQ(cn->Provider(), "SQLite");  // what Open would use
  EXPECT_EQ(ZT_ERROR_NUMBER(cn->BeginTrans()), Hr(0x800A0E78));

  const std::string path =
      (std::filesystem::temp_directory_path() / ("zt_ro_" + std::to_string(::getpid()) + ".db"))
          .string();
  dao::Database::OpenDatabase(path)->Execute("CREATE TABLE r (a LONG)");
  auto ro = dao::Database::OpenDatabase(path, /*read_only=*/true);
  EXPECT_EQ(ro->TableDefs(0).Name(), "r");
  EXPECT_EQ(ZT_ERROR_NUMBER(ro->Execute("INSERT INTO r VALUES (1)")), Hr(0x80040E09));
  ro.reset();
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace zt::testing
