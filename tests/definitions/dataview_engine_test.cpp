// Data views on every live engine, against a real tblDataView: loading with Null columns, the
// collection's statement, a whole-collection save, a save that fails part-way and leaves the
// table as it was, the link-table form and the view's default query.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "definitions_fixture.h"
#include "support/engines.h"
#include "support/test_env.h"
#include "zt/datastore.h"
#include "zt/definitions/dataview.h"
#include "zt/definitions/query.h"
#include "zt/error.h"
#include "zt/platform.h"

namespace zt::testing {
namespace {

using namespace zt::ado;

constexpr const char* kLink = "zt_dv_link";
constexpr const char* kRows = "zt_dv_qry_rows";

class DataViewEngineTest : public ::testing::TestWithParam<Engine> {
 protected:
  void SetUp() override {
    const Engine& e = GetParam();
    ZT_NEED_ENGINE(e.Available(), e.name);
    Scratch s = OpenScratch(e, "zt_dv", "defs.db");
    dir_ = s.dir;
    cn_ = s.cn;
    DropTables();
    Connection& cn = *cn_;
    const std::string i = cn.ColumnType(4), t = cn.ColumnType(10, 50);
    cn.Execute("CREATE TABLE [tblDataView] ([nID] " + i + ", [nDefaultQueryID] " + i +
               ", [nDefaultOrder] " + i + ", [tName] " + t + ", [tDescription] " +
               cn.ColumnType(10, 200) + ")");
    // Two views cannot share a name: lets a test make the engine refuse a row mid-save.
    cn.Execute("CREATE UNIQUE INDEX [UN_tblDataView_name] ON [tblDataView] ([tName])");
    for (const char* r : {"2, 11, 1, 'Open calls', 'Calls not yet closed'",
                          "1, NULL, NULL, 'All calls', NULL", "3, 12, 2, 'Mine', ''"})
      cn.Execute(
          "INSERT INTO [tblDataView] ([nID], [nDefaultQueryID], [nDefaultOrder], [tName], "
          "[tDescription]) VALUES (" +
          std::string(r) + ")");
    cn.Execute("CREATE TABLE [" + std::string(kLink) + "] ([nDataViewID] " + i + ", [nQueryID] " +
               i + ", [nOrder] " + i + ", [tNote] " + t + ")");
    cn.Execute("INSERT INTO [" + std::string(kLink) + "] VALUES (7, 70, 3, 'kept apart')");
    cn.Execute("CREATE TABLE [tblTableTypes] ([nID] " + i + ", [nType] " + i + ", [nLocal] " + i +
               ", [tDataTable] " + t + ", [tCustomTable] " + t + ", [tPrefix] " + t + ")");
    cn.Execute("INSERT INTO [tblTableTypes] VALUES (5, 3, 0, '" + std::string(kRows) +
               "', 'tblQueries', NULL)");
    cn.Execute("CREATE TABLE [" + std::string(kRows) + "] ([nID] " + i + ", [nRow] " + i +
               ", [tField] " + t + ")");
    for (const char* r : {"11, 2, 'nPriority'", "11, 1, 'nStatus'", "12, 1, 'nOwner'"})
      cn.Execute("INSERT INTO [" + std::string(kRows) + "] VALUES (" + r + ")");
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
    for (const char* t : {"tblDataView", kLink, "tblTableTypes", kRows})
      cn_->Execute("DROP TABLE IF EXISTS [" + std::string(t) + "]");
  }

  // Every row of `table` in the order of its first column, Null as "<null>".
  std::vector<std::string> StoredRows(const std::string& table = "tblDataView") {
    std::vector<std::string> out;
    auto rs = cn_->Execute("SELECT * FROM [" + table + "] ORDER BY 1");
    for (; !rs->Eof(); rs->MoveNext()) {
      std::string row;
      for (int c = 0; c < rs->GetFields().Count(); ++c) {
        const Variant v = rs->Fields(c).Value();
        row += (c ? "|" : "") + (v.IsNull() ? std::string("<null>") : v.ToText());
      }
      out.push_back(row);
    }
    return out;
  }

  static std::shared_ptr<CZtDataView> View(std::int32_t id, std::int32_t query, std::int32_t order,
                                           const std::string& name,
                                           const std::string& description) {
    auto v = std::make_shared<CZtDataView>();
    v->ID(id);
    v->QueryID(query);
    v->Order(order);
    v->Name(name);
    v->Description(description);
    return v;
  }

  RecordingEnv env_;
  std::filesystem::path dir_;
  std::shared_ptr<Connection> cn_;
  std::shared_ptr<CZtDataStore> ds_;
};

TEST_P(DataViewEngineTest, ViewsLoadWithNullsAndSaveAsAWhole) {
  CZtDataViewCol views;
  EXPECT_EQ(views.SQLStatement()->SQLText(),
            "SELECT [nID],[nDefaultQueryID],[nDefaultOrder],[tName],[tDescription] FROM "
            "[tblDataView] ORDER BY [nID]");
  views.Load(ds_);
  EXPECT_EQ(views.Keys(), (std::vector<std::int32_t>{1, 2, 3}));
  auto all = views.Item(1);
  EXPECT_EQ(all->QueryID(), 0);
  EXPECT_EQ(all->Order(), 0);
  EXPECT_EQ(all->Name(), "All calls");
  EXPECT_EQ(all->Description(), "");
  EXPECT_EQ(views.Item(2)->Description(), "Calls not yet closed");

  // Loading again keeps the views held (the first of an ID stays), so a caller's changes live.
  views.Item(3)->Name("Changed here");
  views.Load(ds_);
  EXPECT_EQ(views.Count(), 3);
  EXPECT_EQ(views.Item(3)->Name(), "Changed here");

  views.Remove(1);
  views.Add(View(9, 12, 4, "Escalated", "O'Brien's queue"));
  views.Save(ds_);
  EXPECT_EQ(StoredRows(),
            (std::vector<std::string>{"2|11|1|Open calls|Calls not yet closed",
                                      "3|12|2|Changed here|", "9|12|4|Escalated|O'Brien's queue"}));
  CZtDataViewCol back;
  back.Load(ds_);
  back.ChildrenFieldDelimiter(";");
  views.ChildrenFieldDelimiter(";");
  EXPECT_EQ(back.ToString(), views.ToString());

  // An empty collection deletes every row, and the deletion stays.
  CZtDataViewCol none;
  none.Save(ds_);
  EXPECT_TRUE(StoredRows().empty());
  ds_->CloseConnections();
  EXPECT_TRUE(StoredRows().empty());

  // A data store that is not a CZtDataStore is refused before anything is read.
  auto [number, text] = Thrown([&] { none.Load(cn_); });
  EXPECT_EQ(number, 13);
  EXPECT_EQ(text, "Connection.IZtDataViewCol_Load - objDataStore must be a CZtDataStore object");
}

TEST_P(DataViewEngineTest, ASaveThatFailsPartWayLeavesTheTableAsItWas) {
  const std::vector<std::string> before = StoredRows();
  CZtDataViewCol views;
  views.Load(ds_);
  views.Item(1)->Name("Renamed first");
  // The engine refuses the last view (its name is another's) after the old rows were deleted
  // and the others written.
  views.Add(View(4, 0, 0, "Open calls", ""));
  EXPECT_THROW(views.Save(ds_), ZtError);
  EXPECT_EQ(StoredRows(), before);
  EXPECT_TRUE(env_.Logged("CZtDataViewCol.Save, #Line=40"));

  // The connection is usable afterwards, outside any transaction: a good save goes through
  // and stays after the connection is closed.
  views.Remove(4);
  views.Save(ds_);
  ds_->CloseConnections();
  EXPECT_EQ(StoredRows()[0], "1|0|0|Renamed first|");

  // A statement the engine cannot run fails at once and changes nothing either.
  auto bad = std::make_shared<CZtSQLStatement>();
  bad->Table("zt_dv_no_such_table");
  views.SQLStatement(bad);
  const std::vector<std::string> now = StoredRows();
  EXPECT_THROW(views.Save(ds_), ZtError);
  EXPECT_EQ(StoredRows(), now);
  // A statement without a table is blank: nothing is read or written, and nothing fails.
  views.SQLStatement(std::make_shared<CZtSQLStatement>());
  views.Save(ds_);
  views.Load(ds_);
  EXPECT_EQ(StoredRows(), now);
}

TEST_P(DataViewEngineTest, ALinkTableOfViewsHoldsOnlyTheThreeLinkColumns) {
  CZtDataViewCol links;
  auto st = std::make_shared<CZtSQLStatement>();
  st->Table(kLink);
  links.SQLStatement(st);
  links.Load(ds_);
  ASSERT_EQ(links.Count(), 1);
  EXPECT_EQ(links.Item(7)->QueryID(), 70);
  EXPECT_EQ(links.Item(7)->Order(), 3);
  EXPECT_EQ(links.Item(7)->Name(), "");

  links.RemoveAll();
  links.Add(View(2, 21, 5, "not written", "nor this"));
  links.Add(View(3, 0, 6, "", ""));
  links.Save(ds_);
  EXPECT_EQ(StoredRows(kLink), (std::vector<std::string>{"2|21|5|<null>", "3|0|6|<null>"}));
}

TEST_P(DataViewEngineTest, AViewsDefaultQueryComesWithItsExpressions) {
  CZtDataViewCol views;
  views.Load(ds_);
  auto query = views.Item(2)->GetQuery(ds_, 5);
  ASSERT_TRUE(query);
  EXPECT_EQ(query->ID(), 11);
  EXPECT_EQ(query->TableType(), 5);
  ASSERT_EQ(query->Expressions().size(), 2u);
  EXPECT_EQ(ExpressionValue(query->Expressions()[0], "tField").ToText(), "nStatus");
  // A view without a default query has none.
  EXPECT_EQ(views.Item(1)->GetQuery(ds_, 5), nullptr);
  EXPECT_THROW(views.Item(2)->GetQuery(cn_, 5), ZtError);
}

INSTANTIATE_TEST_SUITE_P(Engines, DataViewEngineTest, ::testing::ValuesIn(LiveEngines()),
                         EngineName());

}  // namespace
}  // namespace zt::testing
