// Table types, styles and saved queries on every live engine, against real definition tables:
// what loads (Null and missing columns included), what is read once and kept, the statement
// texts, and a query save that fails part-way leaving the stored rows exactly as they were.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/definitions/query.h"
#include "zt/definitions/table_type.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

constexpr const char* kRows = "zt_def_qry_rows";
constexpr const char* kDefs = "zt_def_qry_defs";

class DefinitionsEngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    Scratch s = OpenScratch(e, "zt_defs", "defs.db");
    dir_ = s.dir;
    cn_ = s.cn;
    DropTables();
    Connection& cn = *cn_;
    const std::string i = cn.ColumnType(4), t = cn.ColumnType(10, 50);
    // No tTempTable and no tSecurityTable: an older tblTableTypes still loads.
    cn.Execute("CREATE TABLE [tblTableTypes] ([nID] " + i + ", [nType] " + i + ", [nLocal] " + i +
               ", [tDataTable] " + t + ", [tCustomTable] " + t + ", [tPrefix] " + t + ")");
    const char* types[] = {
        "5, 3, 0, 'zt_def_qry_rows', 'zt_def_qry_defs', NULL",
        "6, 3, 1, 'tblLocalRows', 'tblLocalDefs', 'loc'",
        "12, 7, 0, 'tblLayoutData', 'tblLayoutDefs', 'lay'",
        "13, 7, 0, 'tblForms13', 'tblFormDefs13', 'f13'",
        "13, 7, 0, 'tblLAYOUTData', 'tblLayoutDefs', 'lay'",
        "14, 8, 0, 'tbllayout14', 'tblLayoutDefs14', 'l14'",
        "20, NULL, NULL, NULL, NULL, NULL",
    };
    for (const char* r : types)
      cn.Execute(
          "INSERT INTO [tblTableTypes] ([nID], [nType], [nLocal], [tDataTable], "
          "[tCustomTable], [tPrefix]) VALUES (" +
          std::string(r) + ")");
    cn.Execute("CREATE TABLE [" + std::string(kDefs) + "] ([nID] " + i + ", [tName] " + t +
               ", [tCaption] " + t + ")");
    cn.Execute("INSERT INTO [" + std::string(kDefs) + "] VALUES (1, 'Open calls', NULL)");
    cn.Execute("CREATE TABLE [" + std::string(kRows) + "] ([nID] " + i + " NOT NULL, [nRow] " + i +
               " NOT NULL, [tField] " + t + ", [tOperator] " + cn.ColumnType(10, 10) +
               ", [tValue] " + t + ", CONSTRAINT [PK_" + kRows + "] PRIMARY KEY ([nID], [nRow]))");
    // The value of a row is unique across queries: lets a test make the engine refuse a row.
    cn.Execute("CREATE UNIQUE INDEX [UN_" + std::string(kRows) + "_value] ON [" + kRows +
               "] ([tValue])");
    cn.Execute("INSERT INTO [" + std::string(kRows) + "] VALUES (1, 1, 'nStatus', '=', 'open1')");
    cn.Execute("INSERT INTO [" + std::string(kRows) + "] VALUES (1, 2, 'nPriority', '>', 'prio1')");
    cn.Execute("INSERT INTO [" + std::string(kRows) + "] VALUES (2, 1, 'nStatus', '=', 'taken')");
    ds_ = e.MakeStore(dir_.string(), "defs.db");
  }
  void TearDown() override {
    if (ds_) ds_->CloseConnections();
    if (cn_ && cn_->State() == adStateOpen) {
      DropTables();
      cn_->Close();
    }
    if (!dir_.empty()) std::filesystem::remove_all(dir_);
  }
  void DropTables() {
    for (const char* t : {"tblTableTypes", kDefs, kRows})
      cn_->Execute("DROP TABLE IF EXISTS [" + std::string(t) + "]");
  }

  // Every row of the structure table, in key order, Null as "<null>".
  std::vector<std::string> StoredRows() {
    std::vector<std::string> out;
    auto rs = cn_->Execute("SELECT [nID], [nRow], [tField], [tOperator], [tValue] FROM [" +
                           std::string(kRows) + "] ORDER BY [nID], [nRow]");
    for (; !rs->Eof(); rs->MoveNext()) {
      std::string row;
      for (int c = 0; c < 5; ++c) {
        const Variant v = rs->Fields(c).Value();
        row += (c ? "|" : "") + (v.IsNull() ? std::string("<null>") : v.ToText());
      }
      out.push_back(row);
    }
    return out;
  }

  static Dictionary Expression(const Variant& field, const Variant& op, const Variant& value) {
    Dictionary d;
    d.Set("tField", field);
    d.Set("tOperator", op);
    d.Set("tValue", value);
    return d;
  }

  RecordingEnv env_;
  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
  std::shared_ptr<CZtDataStore> ds_;
};

TEST_P(DefinitionsEngineTest, TableTypesLoadWithNullsMissingColumnsAndTheLayoutException) {
  auto cn = ds_->GetConnection(1);
  CZtTableType t;
  t.Load(cn, 5);
  EXPECT_EQ(t.ID(), 5);
  EXPECT_EQ(t.StyleType(), 3);
  EXPECT_EQ(t.StructureTable(), kRows);
  EXPECT_EQ(t.DefinitionTable(), kDefs);
  EXPECT_EQ(t.Prefix(), "");          // Null
  EXPECT_EQ(t.TemporaryTable(), "");  // column missing
  EXPECT_EQ(t.SecurityTable(), "");

  // Type 13 passes over its layout row (whatever its case) though it comes last; type 12
  // takes the very same kind of row; type 14 has only a layout row and stays empty.
  CZtTableType t13, t12, t14, t20, none;
  t13.Load(cn, 13);
  EXPECT_EQ(t13.StructureTable(), "tblForms13");
  EXPECT_EQ(t13.Prefix(), "f13");
  t12.Load(cn, 12);
  EXPECT_EQ(t12.StructureTable(), "tblLayoutData");
  t14.Load(cn, 14);
  EXPECT_EQ(t14.ID(), 0);
  EXPECT_EQ(t14.StructureTable(), "");
  t20.Load(cn, 20);  // every column but nID Null
  EXPECT_EQ(t20.ID(), 20);
  EXPECT_EQ(t20.StyleType(), 0);
  EXPECT_EQ(t20.StructureTable(), "");
  none.Load(cn, 99);
  EXPECT_EQ(none.ID(), 0);

  // By style type and local flag, and the local family of a type.
  CZtTableType by_type;
  by_type.Load(cn, 0, 3, 1);
  EXPECT_EQ(by_type.ID(), 6);
  std::string defs, structure;
  EXPECT_TRUE(t.GetLocalTables(cn, defs, structure));
  EXPECT_EQ(defs, "tblLocalDefs");
  EXPECT_EQ(structure, "tblLocalRows");
  EXPECT_EQ(CZtTableType::LoadStatement(5, 0, 0), "SELECT * FROM tblTableTypes WHERE nID= 5");
  EXPECT_EQ(CZtTableType::LoadStatement(0, 3, 1),
            "SELECT * FROM tblTableTypes WHERE nType = 3 AND nLocal =  1");
}

TEST_P(DefinitionsEngineTest, ManagerAndStyleReadTheirTablesOnce) {
  CZtTableTypeMgr mgr;
  EXPECT_THROW(mgr.Item(5), ZtError);  // no data store yet
  mgr.Initialize(ds_);
  EXPECT_EQ(mgr.Item(5)->StructureTable(), kRows);
  cn_->Execute("UPDATE [tblTableTypes] SET [tDataTable]='changed' WHERE [nID]=5");
  EXPECT_EQ(mgr.Item(5)->StructureTable(), kRows);  // kept, not read again
  EXPECT_EQ(mgr.Count(), 1);
  EXPECT_TRUE(mgr.Exists(5));
  EXPECT_EQ(mgr.Keys(), std::vector<std::int32_t>{5});
  mgr.Remove(5);
  EXPECT_THROW(mgr.Remove(5), ZtError);
  EXPECT_EQ(mgr.Item(5)->StructureTable(), "changed");  // read again after Remove
  cn_->Execute("UPDATE [tblTableTypes] SET [tDataTable]='" + std::string(kRows) +
               "' WHERE [nID]=5");

  CZtStyle style;
  style.InitializeStyle(ds_, 1, 5, 3);
  EXPECT_EQ(style.Name(), "Open calls");
  EXPECT_EQ(style.Caption(), "");  // Null
  EXPECT_EQ(style.GetStructureTableName(), kRows);
  cn_->Execute(
      "UPDATE [tblTableTypes] SET [tDataTable]='moved', [tCustomTable]='moved' "
      "WHERE [nID]=5");
  EXPECT_EQ(style.GetStructureTableName(), kRows);
  EXPECT_EQ(style.GetDefinitionTableName(), kDefs);
}

TEST_P(DefinitionsEngineTest, QuerySavesLoadsAndDeletesItsOwnRows) {
  CZtQuery q;
  q.Initialize(1, 5, "Open calls");
  EXPECT_EQ(q.SQLStatement(ds_)->SQLText(),
            "SELECT * FROM [zt_def_qry_rows] WHERE [nID]=1 ORDER BY [nRow]");
  q.Load(ds_);
  ASSERT_EQ(q.Expressions().size(), 2u);
  EXPECT_EQ(ExpressionValue(q.Expressions()[1], "tField").ToText(), "nPriority");
  EXPECT_TRUE(
      ExpressionValue(q.Expressions()[0], "nID").IsEmpty());  // the key columns are the query's own

  q.Expressions().clear();
  q.Expressions().push_back(Expression("nOwner", "<>", Variant::Null()));
  q.Expressions().push_back(Expression("nStatus", "=", "closed"));
  q.Expressions().push_back(Expression("nAge", ">=", "30"));
  q.Save(ds_);
  EXPECT_EQ(StoredRows(), (std::vector<std::string>{
                              "1|1|nOwner|<>|<null>",
                              "1|2|nStatus|=|closed",
                              "1|3|nAge|>=|30",
                              "2|1|nStatus|=|taken",
                          }));
  CZtQuery back;
  back.Initialize(1, 5);
  back.Load(ds_);
  ASSERT_EQ(back.Expressions().size(), 3u);
  EXPECT_TRUE(ExpressionValue(back.Expressions()[0], "tValue").IsNull());
  EXPECT_EQ(ExpressionValue(back.Expressions()[2], "TOPERATOR").ToText(), ">=");

  // Fewer rows: the surplus goes.
  q.Expressions().resize(1);
  q.Save(ds_);
  EXPECT_EQ(StoredRows(),
            (std::vector<std::string>{"1|1|nOwner|<>|<null>", "2|1|nStatus|=|taken"}));
  q.Delete(ds_);
  EXPECT_EQ(StoredRows(), (std::vector<std::string>{"2|1|nStatus|=|taken"}));
}

TEST_P(DefinitionsEngineTest, AQuerySaveThatFailsPartWayLeavesTheTableAsItWas) {
  const std::vector<std::string> before = StoredRows();
  CZtQuery q;
  q.Initialize(1, 5);
  // The engine refuses the second new row (its value belongs to query 2) after the old rows
  // were deleted and the first new row written.
  q.Expressions().push_back(Expression("nStatus", "=", "fresh"));
  q.Expressions().push_back(Expression("nStatus", "=", "taken"));
  EXPECT_THROW(q.Save(ds_), ZtError);
  EXPECT_EQ(StoredRows(), before);
  EXPECT_TRUE(env_.Logged("CZtQuery.SaveToDB, @Line#50"));

  // A row the recordset itself refuses (no such column) while the rows are being written.
  q.Expressions()[1] = Expression("nStatus", "=", "other");
  q.Expressions()[1].Set("tNoSuchColumn", "x");
  EXPECT_THROW(q.Save(ds_), ZtError);
  EXPECT_EQ(StoredRows(), before);

  // The query's connection is usable afterwards and a good save goes through.
  q.Expressions().resize(1);
  q.Save(ds_);
  EXPECT_EQ(StoredRows(), (std::vector<std::string>{"1|1|nStatus|=|fresh", "2|1|nStatus|=|taken"}));

  // A table type without a structure table gives no statement rather than a broken one.
  CZtQuery orphan;
  orphan.Initialize(1, 20);
  EXPECT_THROW(orphan.Load(ds_), ZtError);
}

INSTANTIATE_TEST_SUITE_P(Engines, DefinitionsEngineTest, ::testing::ValuesIn(LiveEngines()),
                         EngineName());

}  // namespace
}  // namespace zt::testing
